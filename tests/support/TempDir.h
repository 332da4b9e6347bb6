#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

// A fresh directory under /tmp, removed with its content at destruction.
class TempDir {
  public:
    TempDir() : dir(makeDirectory()) {}
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    const std::string& path() const { return dir; }
    // Writes a file in the directory and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(dir + "/" + name, std::ios::binary) << content;
        return dir + "/" + name;
    }

  private:
    static std::string makeDirectory() {
        char pattern[] = "/tmp/tessavant-test-XXXXXX";
        return ::mkdtemp(pattern);
    }
    std::string dir;
};

// A whole file, or "" when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}
