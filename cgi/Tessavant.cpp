#include "cgi/Tessavant.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/Exception.h"
#include "base/Util.h"
#include "cgi/QueryString.h"
#include "crypto/Copyright.h"

const char* const Tessavant::VERSION = "6.0";

namespace {

const char TEXT_HEADER[] = "Content-type: text/plain\n\n";

void put(const char* text) { std::fputs(text, stdout); }
void put(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

// The POST body, zero-filled so that a body shorter than announced reads as
// a shorter text.
std::unique_ptr<char, decltype(&std::free)> readBody() {
    const char* contentLength = std::getenv("CONTENT_LENGTH");
    if (contentLength == nullptr) throw Exception("Tessavant", "CONTENT_LENGTH not found", -1);
    long length = std::strtol(contentLength, nullptr, 10);
    if (length <= 0) throw Exception("Tessavant", "CONTENT_LENGTH invalid", -1);
    char* body = static_cast<char*>(std::calloc(static_cast<unsigned long>(length) + 1, 1));
    if (body == nullptr || length == __LONG_MAX__)
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
    if (software == nullptr) return;
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

void Tessavant::image(QueryString&) {}
