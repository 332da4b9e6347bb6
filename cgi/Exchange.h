#pragma once

#include <cstddef>

// What one request is given and where its reply goes: the process's
// environment and standard streams for a CGI run, or one request of a
// FastCGI connection. The request class reads nothing else.
class Exchange {
  public:
    virtual ~Exchange() {}

    // The value of a parameter, or nullptr when it was not given.
    virtual const char* param(const char* name) const = 0;
    // Every parameter as "NAME=value", in the order given; null-terminated.
    virtual char** params() const = 0;
    // Reads up to size bytes of the request body; fewer only at its end.
    virtual size_t read(char* buffer, size_t size) = 0;
    // Writes first, then second, whole; false once the reader has gone.
    virtual bool write(const char* first, size_t firstLength, const char* second = nullptr,
                       size_t secondLength = 0) = 0;
    // Copies up to length bytes from the descriptor's current offset to the
    // output, through buffer (of at least length bytes) where it must;
    // returns the count copied (fewer at the end of the file), or -1 once
    // the reader has gone.
    virtual long copy(int fd, size_t length, char* buffer);
};
