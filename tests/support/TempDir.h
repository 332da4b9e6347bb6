#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A fresh directory under /tmp, removed with its content at destruction.
class TempDir {
  public:
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    const std::string& path() const { return dir; }
    std::string write(const std::string& name, const std::string& content) const {  // its path
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    }

  private:
    char pattern[27] = "/tmp/tessavant-test-XXXXXX";
    const std::string dir = ::mkdtemp(pattern);
};

inline std::string readFile(const std::string& path) {  // "" when it cannot be read
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
