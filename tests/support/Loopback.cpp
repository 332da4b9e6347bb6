#include "tests/support/Loopback.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

sockaddr_in loopbackAddress(int port) {
    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

int bindLoopback(int fd) {
    sockaddr_in address = loopbackAddress();
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return -1;
    return ntohs(address.sin_port);
}

int freeLoopbackPort() {
    int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int port = s < 0 ? -1 : bindLoopback(s);
    if (s >= 0)
        ::close(s);
    if (port <= 0)
        throw std::runtime_error("no free port on 127.0.0.1");
    return port;
}

bool acceptsOnLoopback(int port) {
    int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (s < 0)
        return false;
    sockaddr_in address = loopbackAddress(port);
    bool ok = ::connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(s);
    return ok;
}
