#pragma once

#include <string>

#include "net/HttpConnection.h"

class SslLibrary;
struct ssl_ctx_st;
struct ssl_st;

// HttpConnection over TLS. Without a policy that verifies, the peer is
// accepted whoever it is: no trust store, no verification, no server name
// sent. A failed handshake shows as
// "Bad response" when the request reads the head. OpenSSL is loaded before
// the connection is made (SslLibrary); where it cannot be, the constructor
// throws and nothing is connected.
class HttpsConnection : public HttpConnection {
  public:
    HttpsConnection(const char* host, int port);
    ~HttpsConnection() override;

    // Always reads into the connection's own buffer, whatever is passed.
    int recv(char* buffer, int length) const override;
    // One TLS write; its result is not examined.
    const Socket& operator<<(const std::string& text) const override;

  protected:
    HttpsConnection(const SslLibrary& library, const char* host, int port);

    // Under a policy that verifies the peer: the trusted certificates.
    void trust();
    // Throws the policy's refusal of a failed handshake, if it has one.
    void refuse(bool verify);
    void release();

    const SslLibrary& library;
    ssl_ctx_st* context;
    ssl_st* ssl;
};
