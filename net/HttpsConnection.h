#pragma once

#include <openssl/ssl.h>

#include <string>

#include "net/HttpConnection.h"

// HttpConnection over TLS. The peer is accepted whoever it is: no trust
// store, no verification, no server name sent. A failed handshake shows as
// "Bad response" when the request reads the head.
class HttpsConnection : public HttpConnection {
  public:
    HttpsConnection(const char* host, int port);
    ~HttpsConnection() override;

    // Always reads into the connection's own buffer, whatever is passed.
    int recv(char* buffer, int length) const override;
    // One TLS write; its result is not examined.
    const Socket& operator<<(const std::string& text) const override;

  protected:
    SSL_CTX* context;
    SSL* ssl;
};
