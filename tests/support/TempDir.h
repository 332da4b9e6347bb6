#pragma once

#include <string>

// A fresh directory under /tmp, removed with its content at destruction.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return dir; }
    // Writes a file below the directory and returns its full path.
    std::string write(const std::string& name, const std::string& content) const;

  private:
    std::string dir;
};

// Reads a whole file; throws when it cannot be read.
std::string readFile(const std::string& path);
