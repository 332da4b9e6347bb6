#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

// A fresh directory under /tmp, removed with its content at destruction.
class TempDir {
  public:
    TempDir() {
        char pattern[] = "/tmp/tessavant-test-XXXXXX";
        dir = ::mkdtemp(pattern);
    }
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
    std::string dir;
};

inline std::string readFile(const std::string& path) {  // "" when it cannot be read
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}
