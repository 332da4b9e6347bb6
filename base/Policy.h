#pragma once

#include <cstdint>
#include <string>

// The site policy that a build carries (-DTESSAVANT_POLICY=FILE), made into
// code at build time. Without one, ENABLED is false, every caller's check
// folds away and the program opens whatever a valid reference names. Every
// refusal is an Exception whose "where" is "Policy::<rule>".
class Policy {
  public:
#ifdef TESSAVANT_POLICY
    static constexpr bool ENABLED = true;
#else
    static constexpr bool ENABLED = false;
#endif

    // Opens a local reference for reading, resolved beneath the one allowed
    // root that it names, or throws the refusal. -1 with errno for an
    // ordinary failure (a missing file).
    static int openLocal(const std::string& path);
    // The resolution of openLocal for kernels without openat2: stricter, as
    // it refuses every symbolic link and every "..". rest is relative to root.
    static int openWalking(int root, const std::string& rest);

    // Throws unless host matches a remote-host pattern.
    static void checkHost(const std::string& host);
    // Throws unless the IPv4 address (network byte order) that a connection
    // to host is about to use is public or explicitly allowed.
    static void checkAddress(const std::string& host, uint32_t address);
    // Throws once more redirections than allowed have been followed.
    static void checkRedirects(int followed);
    // Throws unless a final reply announces its length, as plain digits
    // within the limit and without a transfer coding (values may be null).
    static void checkLength(const std::string& url, const std::string* contentLength,
                            const std::string* transferEncoding);
    // Throws the time-out refusal for a call on host that failed with errno.
    [[noreturn]] static void timedOut(const std::string& host);

    static int timeoutSeconds();
    static bool tlsVerify();
    static const char* caFile();  // nullptr: the system's store
    // The rules, one directive a line, defaults included; nullptr without a
    // policy.
    static const char* text();
};
