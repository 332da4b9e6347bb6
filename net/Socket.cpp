#include "net/Socket.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/Exception.h"
#include "base/Policy.h"

Socket::Socket(const char* host, int port) : host(host != nullptr ? host : ""), port(port), fd(-1) {
    std::memset(&address, 0, sizeof address);
}

// Not through the virtual close: a derived class is gone by now.
Socket::~Socket() {
    Socket::close();
}

void Socket::open() {
    create();
    connect();
}

void Socket::open(int port) {
    this->port = port;
    create();
    bind();
    listen();
}

void Socket::close() {
    if (fd != -1) {
        ::close(fd);
        fd = -1;
    }
}

void Socket::create() {
    fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd == -1)
        throw Exception("socket", getLastError());
    int on = 1;
    if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == -1)
        throw Exception("Socket::create", "setsockopt", getLastError());
    // A policy bounds connect, each send and each receive (and so the TLS
    // handshake); without one the system's limits apply.
    if (Policy::ENABLED) {
        const timeval limit = {Policy::timeoutSeconds(), 0};
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == -1 ||
            ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == -1)
            throw Exception("Socket::create", "setsockopt", getLastError());
    }
}

void Socket::connect() {
    // The socket is IPv4 only, so only IPv4 entries may be taken: an IPv6
    // entry forced into an IPv4 record would name a wrong address.
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0 || list == nullptr)
        throw Exception("Socket::connect", "getaddrinfo", getLastError());
    std::memcpy(&address, list->ai_addr, sizeof address);
    ::freeaddrinfo(list);
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    // Judged on the address about to be used, not on the name: a name that
    // resolves to this machine or its networks is refused however written.
    if (Policy::ENABLED)
        Policy::checkAddress(host, address.sin_addr.s_addr);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (Policy::ENABLED && (errno == EINPROGRESS || errno == EAGAIN))
            Policy::timedOut(host);
        throw Exception("Socket::connect", "connect", getLastError());
    }
}

void Socket::bind() {
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1)
        throw Exception("Socket::bind", "bind", getLastError());
}

void Socket::listen() const {
    if (::listen(fd, 8) == -1)
        throw Exception("Socket::listen", "listen", getLastError());
}

void Socket::accept(Socket& client) const {
    socklen_t length = sizeof client.address;
    client.fd = ::accept(fd, reinterpret_cast<sockaddr*>(&client.address), &length);
    if (client.fd == -1)
        throw Exception("Socket::accept", "accept", getLastError());
}

void Socket::send(const char* data, int length) const {
    if (data == nullptr || length <= 0)
        return;
    // MSG_NOSIGNAL: a peer that went away gives EPIPE here instead of a
    // signal that would end the process.
    if (::send(fd, data, static_cast<size_t>(length), MSG_NOSIGNAL) == -1) {
        if (Policy::ENABLED && errno == EAGAIN)
            Policy::timedOut(host);
        throw Exception("Socket::send", "send", getLastError());
    }
}

int Socket::recv(char* buffer, int length) const {
    if (buffer == nullptr || length <= 0)
        return 0;
    ssize_t n = ::recv(fd, buffer, static_cast<size_t>(length), 0);
    if (n == -1) {
        if (Policy::ENABLED && errno == EAGAIN)
            Policy::timedOut(host);
        throw Exception("Socket::recv", "recv", getLastError());
    }
    return static_cast<int>(n);
}

const Socket& Socket::operator<<(const std::string& text) const {
    send(text.data(), static_cast<int>(text.length()));
    return *this;
}

const Socket& Socket::operator>>(std::string& text) const {
    char buffer[1025];
    std::memset(buffer, 0, sizeof buffer);
    recv(buffer, 1024);
    text = buffer;
    return *this;
}

int Socket::getLastError() const {
    return errno;
}
