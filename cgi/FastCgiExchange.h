#pragma once

#include <fcgiapp.h>

#include "cgi/Exchange.h"

// One request of a FastCGI connection: its parameters stand for the
// environment, its input and output streams for standard input and output.
class FastCgiExchange : public Exchange {
  public:
    explicit FastCgiExchange(FCGX_Request& request) : request(request) {}

    const char* param(const char* name) const override;
    char** params() const override;
    size_t read(char* buffer, size_t size) override;
    bool write(const char* first, size_t firstLength, const char* second = nullptr,
               size_t secondLength = 0) override;

  private:
    FCGX_Request& request;
};
