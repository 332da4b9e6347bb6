// The response path of HttpConnection: head, status line, header lines and
// body reads across buffer refills, through the production code over a real
// loopback connection. The input is
//
//   <read size>\n<first piece>#~#<second piece>#~#...
//
// The peer sends each piece only once the connection has taken in the one
// before, so each usually arrives in a receive of its own, then closes. The
// body is read with the given size until it ends; all the bytes after the
// head must come out, no more, no fewer.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "base/Exception.h"
#include "fuzz/FuzzSupport.h"
#include "net/HttpConnection.h"

namespace {
int listener = -1;
int listenPort = 0;

// The connection under test, with a bound on every receive so that nothing
// can hang, and its descriptor visible to the peer's pacing.
class FuzzConnection : public HttpConnection {
  public:
    FuzzConnection(const char* host, int port) : HttpConnection(host, port) {
        timeval limit = {5, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    int descriptor() const { return fd; }
};

std::vector<std::string> split(const std::string& text, const std::string& mark) {
    std::vector<std::string> pieces;
    size_t start = 0;
    for (;;) {
        size_t found = text.find(mark, start);
        if (found == std::string::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, found - start));
        start = found + mark.size();
    }
}

// Sends the pieces, each after the client's receive queue is empty, then
// closes. Every wait is bounded; `stop` ends it early.
void peer(int server, int client, const std::vector<std::string>* pieces,
          const std::atomic<bool>* stop) {
    using Clock = std::chrono::steady_clock;
    for (size_t i = 0; i < pieces->size() && !*stop; ++i) {
        if (i > 0) {
            const auto deadline = Clock::now() + std::chrono::seconds(2);
            int queued = 1;
            while (!*stop && Clock::now() < deadline && ::ioctl(client, FIONREAD, &queued) == 0 &&
                   queued > 0)
                std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        const std::string& piece = (*pieces)[i];
        size_t sent = 0;
        while (sent < piece.size() && !*stop) {
            pollfd p = {server, POLLOUT, 0};
            if (::poll(&p, 1, 100) <= 0)
                continue;
            ssize_t n = ::send(server, piece.data() + sent, piece.size() - sent,
                               MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno != EAGAIN)
                break;
            if (n > 0)
                sent += static_cast<size_t>(n);
        }
    }
    ::shutdown(server, SHUT_WR);
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address;
    std::memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener, 4) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        std::abort();
    listenPort = ntohs(address.sin_port);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzzText(data, size);
    const size_t newline = text.find('\n');
    long readSize = std::strtol(text.substr(0, newline).c_str(), nullptr, 10);
    if (readSize <= 0 || readSize > HttpConnection::BUFFER_SIZE + 1000)
        readSize = 4096;
    const std::vector<std::string> pieces =
        split(newline == std::string::npos ? std::string() : text.substr(newline + 1), "#~#");
    std::string sent;
    for (const auto& piece : pieces)
        sent += piece;

    std::unique_ptr<FuzzConnection> connection(new FuzzConnection("127.0.0.1", listenPort));
    int server = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    fuzzCheck(server >= 0, "the loopback peer accepts");
    std::atomic<bool> stop{false};
    std::thread sender(peer, server, connection->descriptor(), &pieces, &stop);

    bool headRead = false;
    bool networkFailure = false;
    size_t body = 0;
    try {
        connection->request("//fuzz.gif");
        headRead = true;
        connection->redirected();
        connection->getLength();
        connection->getLastMidified();
        try {
            connection->redirection();
        } catch (const Exception&) {
        }
        std::vector<char> destination(static_cast<size_t>(readSize));
        for (;;) {
            int got = connection->read(destination.data(), static_cast<int>(readSize));
            fuzzCheck(got >= 0 && got <= readSize, "read returns at most the size asked");
            body += static_cast<size_t>(got);
            if (got < readSize)
                break;
        }
        fuzzCheck(connection->read(destination.data(), 1) == 0, "nothing after the end");
    } catch (const Exception& e) {
        const std::string m = e.getMessageCode();
        // A receive or send that the system fails (a reset under heavy load)
        // is the network's doing, reported as designed; it ends the check.
        networkFailure =
            m.rfind("Socket::recv recv (", 0) == 0 || m.rfind("Socket::send send (", 0) == 0;
        fuzzCheck(networkFailure || m == "HttpConnection::open Bad response (-1)" ||
                      m == "HttpConnection::parseStatus Invalid response (-1)" ||
                      m == "Header::add No header name found (-1)",
                  "the only failures are those of a bad head", e.getMessageCode());
    }
    stop = true;
    sender.join();
    // An abortive close leaves no TIME_WAIT behind, so thousands of runs a
    // second never meet an old connection on a reused port.
    linger abort = {1, 0};
    ::setsockopt(server, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    ::close(server);
    if (headRead && !networkFailure) {
        // The head is everything up to the first blank line, which must lie
        // in the text before any zero byte.
        const size_t end = sent.find("\r\n\r\n");
        fuzzCheck(end != std::string::npos, "a head was found");
        fuzzCheck(connection->getHeaderText() == sent.substr(0, end), "the head as received");
        fuzzCheck(body == sent.size() - end - 4, "every body byte, no more");
    }
    return 0;
}
