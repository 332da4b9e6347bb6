#pragma once

#include <netinet/in.h>

#include <string>

// One IPv4 TCP stream socket. Every operation is virtual so that a derived
// connection can replace the transport (TLS) and have the change apply to
// every internal call. Failed system calls are thrown as Exception with the
// errno code.
class Socket {
  public:
    Socket(const char* host, int port);
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // Server side: stores the accepted descriptor and peer in client.
    virtual void accept(Socket& client) const;
    // One send call; a partial write is not continued.
    virtual void send(const char* data, int length) const;
    // One receive call; 0 at the end of the stream.
    virtual int recv(char* buffer, int length) const;
    virtual const Socket& operator<<(const std::string& text) const;
    // What one receive of at most 1024 bytes delivered, cut at a zero byte.
    virtual const Socket& operator>>(std::string& text) const;
    // Server opening: create, bind to every address, listen.
    virtual void open(int port);
    // Client opening: create, connect.
    virtual void open();
    virtual void close();
    virtual void create();
    virtual void bind();
    virtual void listen() const;
    virtual void connect();
    virtual int getLastError() const;

  protected:
    std::string host;
    int port;
    int fd;
    sockaddr_in address;
};
