#include "cgi/Tessavant.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/Exception.h"
#include "base/Util.h"
#include "cgi/QueryString.h"
#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "file/Date.h"
#include "file/HttpFile.h"
#include "file/StdioFile.h"

const char* const Tessavant::VERSION = "6.0";

namespace {

const char TEXT_HEADER[] = "Content-type: text/plain\n\n";

void put(const char* text) {
    std::fputs(text, stdout);
}
void put(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

// The POST body, zero-filled so that a body shorter than announced reads as
// a shorter text.
std::unique_ptr<char, decltype(&std::free)> readBody() {
    const char* contentLength = std::getenv("CONTENT_LENGTH");
    if (contentLength == nullptr)
        throw Exception("Tessavant", "CONTENT_LENGTH not found", -1);
    long length = std::strtol(contentLength, nullptr, 10);
    if (length <= 0)
        throw Exception("Tessavant", "CONTENT_LENGTH invalid", -1);
    // The largest length leaves no room for the terminator: no allocator
    // could serve it, so none is asked.
    if (length == __LONG_MAX__)
        throw Exception("Tessavant", "Out of memory", -1);
    char* body = static_cast<char*>(std::calloc(static_cast<unsigned long>(length) + 1, 1));
    if (body == nullptr)
        throw Exception("Tessavant", "Out of memory", -1);
    std::unique_ptr<char, decltype(&std::free)> owned(body, &std::free);
    size_t got = std::fread(body, 1, static_cast<size_t>(length), stdin);
    (void)got;  // a short body leaves zero bytes behind it
    body[length] = '\0';
    return owned;
}

}  // namespace

Tessavant::Tessavant(int argc, char** argv, char** envp) : argc(argc), argv(argv), envp(envp) {}

int Tessavant::run() {
    const char* methodValue = std::getenv("REQUEST_METHOD");
    const std::string method = methodValue != nullptr ? methodValue : "";

    std::unique_ptr<QueryString> q;
    if (argc >= 2) {
        // An operator may pass a request URL or a bare query string.
        const char* text = argv[1];
        const char* mark = std::strchr(text, '?');
        q.reset(new QueryString(mark != nullptr ? mark + 1 : text));
    } else if (method == "GET") {
        q.reset(new QueryString(std::getenv("QUERY_STRING")));
    } else if (method == "POST") {
        auto body = readBody();
        q.reset(new QueryString(body.get()));
    } else {
        banner();
        return 0;
    }

    const std::string& cmd = (*q)["cmd"];
    if (cmd == "env") {
        environment();
    } else if (cmd.empty()) {
        version();
    } else if (cmd == "svr") {
        serverInformation();
    } else if (cmd == "img") {
        image(*q);
    }
    // Any other command is answered with silence, by design.
    std::fflush(stdout);
    return 0;
}

void Tessavant::banner() {
    put("Tessavant ");
    put(VERSION);
    put("\nCopyright (C) 2026 The Tessavant developers. All rights reserved.\n");
    std::fflush(stdout);
}

void Tessavant::environment() {
    put(TEXT_HEADER);
    for (char** entry = envp; entry != nullptr && *entry != nullptr; ++entry) {
        put(*entry);
        put("\n");
    }
    put("\n");
}

void Tessavant::version() {
    put(TEXT_HEADER);
    put("Tessavant ");
    put(VERSION);
    put("\n\n");
}

void Tessavant::serverInformation() {
    put(TEXT_HEADER);
    put("w=");
    const char* software = std::getenv("SERVER_SOFTWARE");
    // An unset field puts the reply into its failed state: nothing more is
    // written, not even the closing blank line.
    if (software == nullptr)
        return;
    put(software);
    put("&i=");
    put(Copyright::get());
    put("&a=Tessavant&v=");
    put(VERSION);
    put("&s=");
    const char* script = std::getenv("SCRIPT_FILENAME");
    put(script != nullptr ? std::string(script) : Util::getModuleFilename());
    put("\n\n");
}

namespace {

// Writes all of the given pieces straight to standard output, continuing
// partial writes; false once the reader has gone.
bool writeOut(const char* first, size_t firstLength, const char* second = nullptr,
              size_t secondLength = 0) {
    iovec pieces[2] = {{const_cast<char*>(first), firstLength},
                       {const_cast<char*>(second), secondLength}};
    iovec* next = pieces;
    int count = second != nullptr && secondLength > 0 ? 2 : 1;
    while (count > 0) {
        if (next->iov_len == 0) {
            ++next;
            --count;
            continue;
        }
        ssize_t n = ::writev(STDOUT_FILENO, next, count);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        size_t done = static_cast<size_t>(n);
        while (count > 0 && done >= next->iov_len) {
            done -= next->iov_len;
            ++next;
            --count;
        }
        if (count > 0) {
            next->iov_base = static_cast<char*>(next->iov_base) + done;
            next->iov_len -= done;
        }
    }
    return true;
}

bool writeOut(const std::string& text) {
    return writeOut(text.data(), text.size());
}

// With the default 64 KiB pipe a 512 KiB chunk reaches the reader in many
// pieces, each a wake-up on both sides; a pipe that holds a whole chunk makes
// large copies markedly faster (bench/run). Only ever enlarges, since the
// server may have chosen more. When standard output is no pipe, or the user's
// pipe quota is spent, nothing changes and the copy works as before.
void enlargeOutputPipe(int bodyLength) {
    const int current = ::fcntl(STDOUT_FILENO, F_GETPIPE_SZ);
    if (current > 0 && current < bodyLength && current < Tessavant::COPY_BUFFER_SIZE)
        ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, Tessavant::COPY_BUFFER_SIZE);
}

}  // namespace

void Tessavant::image(QueryString& q) {
    // One chunk of the body at a time; the file is never held whole.
    static char buffer[COPY_BUFFER_SIZE];
    std::fflush(stdout);  // raw writes follow

    std::unique_ptr<File> file;
    std::string reference;
    // Header text not yet written: it goes out together with the first chunk.
    std::string pending;
    try {
        Decryptor decryptor(q["p"]);
        reference = decryptor.decrypt(q["i"]);
        if (Util::lower(reference.substr(0, 4)) == "http")
            file.reset(new HttpFile(reference));
        else
            file.reset(new StdioFile(reference));

        const std::string modified = file->modifiedTime();
        const std::string etag = "\"" + modified + "\"";
        const char* noneMatch = std::getenv("HTTP_IF_NONE_MATCH");
        const char* modifiedSince = std::getenv("HTTP_IF_MODIFIED_SINCE");
        bool notModified = false;
        if (noneMatch != nullptr && etag == noneMatch)
            notModified = true;
        else if (modifiedSince != nullptr)
            notModified = Date(modified.c_str()) <= Date(modifiedSince);
        if (notModified) {
            writeOut("Status: 304 Not Modified\n\n");
            return;
        }

        const int length = file->length();
        pending =
            "Connection: keep-alive\n"
            "Content-Type: application/octet-stream\n"
            "Accept-Ranges: bytes\n"
            "Last-Modified: " +
            file->modifiedTime() +
            "\n"
            "Etag: " +
            etag +
            "\n"
            "Cache-Control: max-age=31536000, must-revalidate, public\n"
            "Expires: Fri, 31 Dec 2027 12:00:00 GMT\n"
            "Content-Length: " +
            std::to_string(length) + "\n\n";

        // A body that fits the default pipe is spared the calls.
        if (length > 65536)
            enlargeOutputPipe(length);
        int remaining = length;
        while (remaining > 0) {
            const int request = std::min(remaining, COPY_BUFFER_SIZE);
            const int got = std::max(file->read(buffer, request), 0);
            const bool written =
                writeOut(pending.data(), pending.size(), buffer, static_cast<size_t>(got));
            pending.clear();
            remaining -= got;
            // A short read ends the body, even below the announced length.
            if (!written || got != request)
                break;
        }
        if (!pending.empty())
            writeOut(pending);
    } catch (const Exception& e) {
        if (!pending.empty())
            writeOut(pending);
        writeOut(std::string(TEXT_HEADER) + "e=" + reference + " - " + e.getMessageCode() + "\n\n");
    }
}
