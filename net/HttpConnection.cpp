#include "net/HttpConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

#include "base/Exception.h"
#include "base/Tokenizer.h"
#include "base/Util.h"

const char* const HttpConnection::USER_AGENT = "Tessavant/6.0+(https://www.tessavant.org/)";

HttpConnection::HttpConnection(const char* host, int port)
    : Socket(host, port), status(0), cursor(buffer), available(0) {
    // The buffer is left as it is: nothing reads beyond what arrived, and
    // pages never written cost no memory.
    Socket::open();
}

HttpConnection::~HttpConnection() = default;

void HttpConnection::request(const char* path) {
    // Nine separate writes: over TLS each one is its own record. Corked, they
    // leave as one segment instead of waiting on the peer's delayed
    // acknowledgement of the first; a failure only costs that wait.
    int on = 1, off = 0;
    ::setsockopt(fd, IPPROTO_TCP, TCP_CORK, &on, sizeof on);
    *this << "GET ";
    *this << (path != nullptr ? path : "");
    *this << " ";
    *this << "HTTP/1.1";
    *this << "\r\nHost: ";
    *this << host + ":" + Util::itoa(port, 10) + "\r\n";
    *this << "User-Agent: ";
    *this << USER_AGENT;
    *this << "\r\n\r\n";
    ::setsockopt(fd, IPPROTO_TCP, TCP_CORK, &off, sizeof off);
    readHead();
}

void HttpConnection::readHead() {
    // The whole head must come in this one receive.
    available = recv(buffer, BUFFER_SIZE);
    if (available < 0)
        available = 0;
    // The received text is searched as a zero-terminated string, but never
    // beyond what arrived: a full buffer has no terminator.
    size_t textLength = strnlen(buffer, static_cast<size_t>(available));
    const char* end = nullptr;
    for (size_t i = 0; i + 4 <= textLength; ++i) {
        if (std::memcmp(buffer + i, "\r\n\r\n", 4) == 0) {
            end = buffer + i;
            break;
        }
    }
    if (end == nullptr)
        throw Exception("HttpConnection::open", "Bad response", -1);
    headerText.assign(buffer, static_cast<size_t>(end - buffer));
    buffer[end - buffer] = '\0';

    Tokenizer lines(headerText.c_str(), "\r\n");
    for (size_t i = 1; i < lines.size(); ++i)
        header.add(lines[i].c_str());
    // Header lines are checked before the status line.
    std::string statusLine = lines.empty() ? std::string() : lines[0];
    parseStatus(&statusLine[0]);

    cursor = buffer + (end - buffer) + 4;
    available -= static_cast<int>(cursor - buffer);
}

void HttpConnection::parseStatus(char* line) {
    Tokenizer words(line != nullptr ? line : "", " \t");
    if (words.size() < 3)
        throw Exception("HttpConnection::parseStatus", "Invalid response", -1);
    protocol = Util::upper(words[0]);
    status = static_cast<int>(std::strtol(words[1].c_str(), nullptr, 10));
    reason = Util::upper(words[2]);
}

int HttpConnection::read(char* destination, int size) {
    int total = 0;
    while (size > available) {
        if (available > 0) {
            std::memcpy(destination, cursor, static_cast<size_t>(available));
            destination += available;
            size -= available;
            total += available;
        }
        cursor = buffer;
        available = recv(buffer, BUFFER_SIZE);
        // A failed TLS read gives a negative count: the body ends there.
        if (available <= 0) {
            available = 0;
            return total;
        }
    }
    if (size > 0) {
        std::memcpy(destination, cursor, static_cast<size_t>(size));
        cursor += size;
        available -= size;
        total += size;
    }
    return total;
}

std::string HttpConnection::redirection() const {
    const std::string* location = header.getFirstValue("location");
    if (location == nullptr)
        throw Exception("HttpConnection::redirection", "No location header", -1);
    return *location;
}

std::string HttpConnection::getLastMidified() const {
    const std::string* value = header.getFirstValue("last-modified");
    return value != nullptr ? *value : std::string();
}

int HttpConnection::getLength() const {
    const std::string* value = header.getFirstValue("content-length");
    return value != nullptr ? static_cast<int>(std::strtol(value->c_str(), nullptr, 10)) : 0;
}
