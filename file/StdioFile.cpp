#include "file/StdioFile.h"

#include <locale.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstring>
#include <ctime>

#include "base/Exception.h"
#include "base/Policy.h"

StdioFile::StdioFile(std::string path) : stream(nullptr) {
    std::memset(&status, 0, sizeof status);
    if (Policy::ENABLED) {
        // Resolved beneath an allowed root, or refused before anything opens.
        const int fd = Policy::openLocal(path);
        stream = fd == -1 ? nullptr : ::fdopen(fd, "rb");
        if (fd != -1 && stream == nullptr)
            ::close(fd);
    } else {
        stream = std::fopen(path.c_str(), "rb");
    }
    if (stream == nullptr)
        throw Exception("StdioFile::StdioFile", "", errno);
    // Reads go straight into the caller's buffer, one read(2) per call: a
    // stdio buffer would only add an fstat, an allocation and, for a size
    // that is not a whole number of blocks, a second read and a copy.
    std::setvbuf(stream, nullptr, _IONBF, 0);
    ::fstat(fileno(stream), &status);
    // length() is a signed 32-bit value: refuse what it cannot describe
    // rather than announce a wrong size.
    if (status.st_size > INT_MAX) {
        std::fclose(stream);
        stream = nullptr;
        throw Exception("StdioFile::StdioFile", "", EFBIG);
    }
}

StdioFile::~StdioFile() {
    if (stream != nullptr) {
        std::fclose(stream);
        stream = nullptr;
    }
}

int StdioFile::read(char* buffer, int size) {
    if (size <= 0)
        return 0;
    return static_cast<int>(std::fread(buffer, 1, static_cast<size_t>(size), stream));
}

int StdioFile::length() {
    return static_cast<int>(status.st_size);
}

std::string StdioFile::modifiedTime() {
    // The header text must be English whatever locale the process runs in.
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    struct tm broken;
    time_t seconds = status.st_mtime;
    char text[256];
    text[0] = '\0';
    if (gmtime_r(&seconds, &broken) != nullptr)
        strftime_l(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &broken, cLocale);
    return text;
}
