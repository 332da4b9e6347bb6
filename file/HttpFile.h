#pragma once

#include <memory>
#include <string>

#include "file/File.h"
#include "net/HttpConnection.h"

// A resource fetched over http or https, positioned at the start of its
// body. Redirections are followed without limit, each location taken as a
// complete new reference.
class HttpFile : public File {
  public:
    explicit HttpFile(std::string reference);
    ~HttpFile() override;
    HttpFile(const HttpFile&) = delete;
    HttpFile& operator=(const HttpFile&) = delete;

    int read(char* buffer, int size) override;
    // The "content-length" of the response, or 0.
    int length() override;
    // The "last-modified" value exactly as the server sent it, or "".
    std::string modifiedTime() override;

  private:
    std::unique_ptr<HttpConnection> connection;
};
