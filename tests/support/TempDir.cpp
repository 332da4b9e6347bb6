#include "tests/support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

TempDir::TempDir() {
    char pattern[] = "/tmp/tessavant-test-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    dir = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    std::string path = dir + "/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out)
        throw std::runtime_error("cannot write " + path);
    return path;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}
