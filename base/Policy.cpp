#include "base/Policy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "base/Exception.h"
#include "base/Tokenizer.h"
#include "base/Util.h"

#ifdef TESSAVANT_POLICY
#include "PolicyRules.h"
#else
namespace {
// No policy: nothing calls the checks; these keep them compiling.
const char* const POLICY_ROOTS[] = {nullptr};
const char* const POLICY_HOSTS[] = {nullptr};
const unsigned long POLICY_ALLOWED[][2] = {{0, 0}};
const int POLICY_ALLOWED_COUNT = 0;
const int POLICY_MAX_REDIRECTS = 5;
const int POLICY_TIMEOUT = 10;
const long POLICY_MAX_LENGTH = -1;
const bool POLICY_TLS_VERIFY = true;
const char* const POLICY_CA_FILE = nullptr;
const char* const POLICY_TEXT = nullptr;
}  // namespace
#endif

namespace {
// The ranges that are refused unless allowed: they reach this machine, its
// own networks or nothing routable (address, prefix length, what it is).
struct Range {
    uint32_t address;
    int bits;
    const char* kind;
};
const Range SPECIAL[] = {
    {0x00000000, 8, "an unspecified address"},    {0x0A000000, 8, "a private address"},
    {0x64400000, 10, "a shared (CGNAT) address"}, {0x7F000000, 8, "a loopback address"},
    {0xA9FE0000, 16, "a link-local address"},     {0xAC100000, 12, "a private address"},
    {0xC0000000, 24, "a reserved address"},       {0xC0000200, 24, "a reserved address"},
    {0xC0A80000, 16, "a private address"},        {0xC6120000, 15, "a reserved address"},
    {0xC6336400, 24, "a reserved address"},       {0xCB007100, 24, "a reserved address"},
    {0xE0000000, 4, "a multicast address"},       {0xFFFFFFFF, 32, "the broadcast address"},
    {0xF0000000, 4, "a reserved address"},
};

bool within(uint32_t address, uint32_t network, int bits) {
    const uint32_t mask = bits == 0 ? 0 : 0xFFFFFFFFu << (32 - bits);
    return (address & mask) == (network & mask);
}

[[noreturn]] void leaves(const std::string& path) {
    throw Exception("Policy::local", path + " leaves the allowed roots", -1);
}
}  // namespace

int Policy::openLocal(const std::string& path) {
    for (const char* const* root = POLICY_ROOTS; *root != nullptr; ++root) {
        const std::string base = *root;
        const size_t size = base == "/" ? 0 : base.size();
        if (path.compare(0, size, base, 0, size) != 0 || path.size() <= size || path[size] != '/')
            continue;
        const int directory = ::open(*root, O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (directory == -1)
            return -1;
        const std::string rest = path.substr(size + 1);
        open_how how = {};
        how.flags = O_RDONLY | O_CLOEXEC;
        how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
#ifdef TESSAVANT_POLICY_NO_OPENAT2
        errno = ENOSYS;  // a build that tests the fallback
        long fd = -1;
#else
        long fd =
            ::syscall(SYS_openat2, directory, rest.empty() ? "." : rest.c_str(), &how, sizeof how);
#endif
        if (fd == -1 && errno == ENOSYS)
            fd = openWalking(directory, rest);
        const int error = errno;
        ::close(directory);
        // EXDEV: ".." or an absolute link left the root; ELOOP: a link to
        // /proc's magic or one that the walk refuses.
        if (fd == -1 && (error == EXDEV || error == ELOOP))
            leaves(path);
        errno = error;
        return static_cast<int>(fd);
    }
    throw Exception("Policy::local", path + " is outside the allowed roots", -1);
}

int Policy::openWalking(int root, const std::string& rest) {
    Tokenizer names(rest.c_str(), "/");
    if (names.empty())
        names.push_back(".");
    int directory = root;
    for (size_t i = 0;; ++i) {
        const bool last = i + 1 == names.size();
        const char* name = names[i].c_str();
        int fd = -1, error = EXDEV;
        if (names[i] != "..") {
            fd = ::openat(directory, name,
                          last ? O_RDONLY | O_NOFOLLOW | O_CLOEXEC
                               : O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            error = errno;
            struct stat status;
            if (fd == -1 && ::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISLNK(status.st_mode))
                error = ELOOP;
        }
        if (directory != root)
            ::close(directory);
        errno = error;
        if (fd == -1 || last)
            return fd;
        directory = fd;
    }
}

void Policy::checkHost(const std::string& host) {
    const std::string name = Util::lower(host);
    for (const char* const* pattern = POLICY_HOSTS; *pattern != nullptr; ++pattern) {
        const std::string p = *pattern;
        if (p == "*" || p == name ||
            (p[0] == '*' && name.size() > p.size() - 1 &&
             name.compare(name.size() - (p.size() - 1), std::string::npos, p, 1) == 0))
            return;
    }
    throw Exception("Policy::remote", host + " is not an allowed host", -1);
}

void Policy::checkAddress(const std::string& host, uint32_t address) {
    const uint32_t a = ntohl(address);
    for (int i = 0; i < POLICY_ALLOWED_COUNT; ++i)
        if ((a & POLICY_ALLOWED[i][1]) == POLICY_ALLOWED[i][0])
            return;
    for (const Range& r : SPECIAL)
        if (within(a, r.address, r.bits)) {
            char text[INET_ADDRSTRLEN] = "";
            ::inet_ntop(AF_INET, &address, text, sizeof text);
            throw Exception("Policy::address", host + " resolves to " + text + ", " + r.kind, -1);
        }
}

void Policy::checkRedirects(int followed) {
    if (followed > POLICY_MAX_REDIRECTS)
        throw Exception("Policy::redirects",
                        "more than " + std::to_string(POLICY_MAX_REDIRECTS) + " redirections", -1);
}

void Policy::checkLength(const std::string& url, const std::string* contentLength,
                         const std::string* transferEncoding) {
    // Without a plain length the end of the body is unknown: refused rather
    // than delivered as an empty or cut image.
    if (contentLength == nullptr || transferEncoding != nullptr || contentLength->empty() ||
        contentLength->size() > 10 ||
        contentLength->find_first_not_of("0123456789") != std::string::npos ||
        std::strtol(contentLength->c_str(), nullptr, 10) > INT_MAX)
        throw Exception("Policy::length", url + " has no usable Content-Length", -1);
    if (POLICY_MAX_LENGTH >= 0 &&
        std::strtol(contentLength->c_str(), nullptr, 10) > POLICY_MAX_LENGTH)
        throw Exception("Policy::length",
                        url + " announces " + *contentLength + " bytes, more than the limit of " +
                            std::to_string(POLICY_MAX_LENGTH),
                        -1);
}

void Policy::timedOut(const std::string& host) {
    throw Exception("Policy::timeout",
                    host + " did not answer within " + std::to_string(POLICY_TIMEOUT) + " s",
                    errno);
}

int Policy::timeoutSeconds() {
    return POLICY_TIMEOUT;
}

bool Policy::tlsVerify() {
    return POLICY_TLS_VERIFY;
}

const char* Policy::caFile() {
    return POLICY_CA_FILE;
}

const char* Policy::text() {
    return POLICY_TEXT;
}
