#pragma once

#include <string>

// A read-only resource with a length and a modification time; the image
// delivery streams any source through this interface.
class File {
  public:
    virtual ~File() = default;
    // Reads up to size bytes; returns the count, 0 at the end.
    virtual int read(char* buffer, int size) = 0;
    virtual int length() = 0;
    // "%a, %d %b %Y %H:%M:%S GMT"
    virtual std::string modifiedTime() = 0;
    // The open file, for callers that move its bytes themselves; -1 where
    // there is none (a remote resource).
    virtual int descriptor() const { return -1; }
};
