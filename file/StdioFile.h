#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "file/File.h"

// A file on the local disk; its size and time are taken once at opening.
class StdioFile : public File {
  public:
    explicit StdioFile(std::string path);
    ~StdioFile() override;
    StdioFile(const StdioFile&) = delete;
    StdioFile& operator=(const StdioFile&) = delete;

    int read(char* buffer, int size) override;
    int length() override;
    std::string modifiedTime() override;
    int descriptor() const override { return fileno(stream); }

  private:
    FILE* stream;
    struct stat status;
};
