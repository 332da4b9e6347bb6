#include "cgi/Tessavant.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/Exception.h"
#include "base/Util.h"
#include "cgi/Exchange.h"
#include "cgi/QueryString.h"
#include "crypto/Copyright.h"
#include "crypto/Decryptor.h"
#include "file/Date.h"
#include "file/HttpFile.h"
#include "file/StdioFile.h"

const char* const Tessavant::VERSION = "6.0";

namespace {

const char TEXT_HEADER[] = "Content-type: text/plain\n\n";

// The POST body, zero-filled so that a body shorter than announced reads as
// a shorter text.
std::unique_ptr<char, decltype(&std::free)> readBody(Exchange& exchange) {
    const char* contentLength = exchange.param("CONTENT_LENGTH");
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
    exchange.read(body, static_cast<size_t>(length));  // a short body leaves zero bytes behind it
    return owned;
}

}  // namespace

int Tessavant::run() {
    const char* methodValue = exchange.param("REQUEST_METHOD");
    const std::string method = methodValue != nullptr ? methodValue : "";

    std::unique_ptr<QueryString> q;
    if (text != nullptr) {
        // An operator may pass a request URL or a bare query string.
        const char* mark = std::strchr(text, '?');
        q.reset(new QueryString(mark != nullptr ? mark + 1 : text));
    } else if (method == "GET") {
        q.reset(new QueryString(exchange.param("QUERY_STRING")));
    } else if (method == "POST") {
        auto body = readBody(exchange);
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
    exchange.write(reply.data(), reply.size());
    return 0;
}

void Tessavant::banner() {
    put("Tessavant ");
    put(VERSION);
    put("\nCopyright (C) 2026 The Tessavant developers. All rights reserved.\n");
    exchange.write(reply.data(), reply.size());
}

void Tessavant::environment() {
    put(TEXT_HEADER);
    for (char** entry = exchange.params(); entry != nullptr && *entry != nullptr; ++entry) {
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
    const char* software = exchange.param("SERVER_SOFTWARE");
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
    const char* script = exchange.param("SCRIPT_FILENAME");
    put(script != nullptr ? std::string(script) : Util::getModuleFilename());
    put("\n\n");
}

void Tessavant::image(QueryString& q) {
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
        if (current(modified)) {
            put("Status: 304 Not Modified\n\n");
            return;
        }
        const int length = file->length();
        pending = imageHeader(modified, length);
        copyBody(*file, length, pending);
        put(pending);
    } catch (const Exception& e) {
        put(pending);
        put(std::string(TEXT_HEADER) + "e=" + reference + " - " + e.getMessageCode() + "\n\n");
    }
}

bool Tessavant::current(const std::string& modified) const {
    const char* noneMatch = exchange.param("HTTP_IF_NONE_MATCH");
    const char* modifiedSince = exchange.param("HTTP_IF_MODIFIED_SINCE");
    if (noneMatch != nullptr && "\"" + modified + "\"" == noneMatch)
        return true;
    return modifiedSince != nullptr && Date(modified.c_str()) <= Date(modifiedSince);
}

std::string Tessavant::imageHeader(const std::string& modified, int length) {
    return "Connection: keep-alive\n"
           "Content-Type: application/octet-stream\n"
           "Accept-Ranges: bytes\n"
           "Last-Modified: " +
           modified +
           "\n"
           "Etag: \"" +
           modified +
           "\"\n"
           "Cache-Control: max-age=31536000, must-revalidate, public\n"
           "Expires: Fri, 31 Dec 2027 12:00:00 GMT\n"
           "Content-Length: " +
           std::to_string(length) + "\n\n";
}

void Tessavant::copyBody(File& file, int length, std::string& pending) {
    // One chunk of the body at a time; the file is never held whole. The
    // buffer is the request's own (requests in flight at once each have
    // one), no larger than the body.
    std::unique_ptr<char[]> owned(new char[std::min(std::max(length, 1), COPY_BUFFER_SIZE)]);
    char* const buffer = owned.get();
    // A local file's bytes are handed over by descriptor, so that the
    // exchange can move them without a copy; the header goes first.
    const int local = file.descriptor();
    for (int remaining = length; remaining > 0;) {
        const int request = std::min(remaining, COPY_BUFFER_SIZE);
        long got;
        if (local != -1) {
            got = exchange.write(pending.data(), pending.size())
                      ? exchange.copy(local, static_cast<size_t>(request), buffer)
                      : -1;
        } else {
            got = std::max(file.read(buffer, request), 0);
            if (!exchange.write(pending.data(), pending.size(), buffer, static_cast<size_t>(got)))
                got = -1;
        }
        pending.clear();
        remaining -= static_cast<int>(got);
        // A short read ends the body, even below the announced length.
        if (got != request)
            break;
    }
}
