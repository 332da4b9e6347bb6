#pragma once

#include "cgi/Exchange.h"

// A CGI run: the process's environment, standard input and standard output.
class CgiExchange : public Exchange {
  public:
    explicit CgiExchange(char** environment) : environment(environment) {}

    const char* param(const char* name) const override;
    char** params() const override { return environment; }
    size_t read(char* buffer, size_t size) override;
    bool write(const char* first, size_t firstLength, const char* second = nullptr,
               size_t secondLength = 0) override;
    // Moves the bytes in the kernel, without passing them through buffer.
    long copy(int fd, size_t length, char* buffer) override;

  private:
    char** environment;
};
