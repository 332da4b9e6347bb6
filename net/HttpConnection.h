#pragma once

#include <string>

#include "net/Header.h"
#include "net/Socket.h"

// A minimal HTTP/1.1 client for one GET per connection: connects on
// construction, reads the response head in one receive and serves the body
// from a large in-object buffer. Create it on the free store: it is a little
// over 512 KiB.
class HttpConnection : public Socket {
  public:
    static const int BUFFER_SIZE = 524288;
    static const char* const USER_AGENT;

    HttpConnection(const char* host, int port);
    ~HttpConnection() override;

    // Sends the GET and parses the head, keeping the body bytes that came
    // with it. Called once per connection.
    void request(const char* path);
    // The head, from the first receive; the body bytes that came with it stay.
    void readHead();
    // Protocol, code and first word of the reason; fewer than three words
    // are rejected.
    void parseStatus(char* line);
    // Returns size unless the body ends first; 0 at its end.
    int read(char* destination, int size);

    bool redirected() const { return status >= 300 && status <= 399; }
    // The first "location" value; throws when the response has none.
    std::string redirection() const;
    // The first "last-modified" value as sent, or "".
    std::string getLastMidified() const;
    // The first "content-length" value, or 0.
    int getLength() const;

    const std::string& getProtocol() const { return protocol; }
    const std::string& getReason() const { return reason; }
    const Header& getHeader() const { return header; }
    // Status line and header lines as received, up to the blank line.
    const std::string& getHeaderText() const { return headerText; }

  protected:
    std::string protocol;

  public:
    int status;

  protected:
    std::string reason;
    Header header;
    std::string headerText;
    char buffer[BUFFER_SIZE];
    char* cursor;
    int available;
};
