#pragma once

#include <netinet/in.h>

// Test peers live on 127.0.0.1 only.

// 127.0.0.1 at the given port (0 lets the system choose).
sockaddr_in loopbackAddress(int port = 0);
// Binds fd to 127.0.0.1 at a free port; returns the port, or -1.
int bindLoopback(int fd);
// A port on 127.0.0.1 where nothing listens right now; throws when there is none.
int freeLoopbackPort();
// Whether something accepts connections on 127.0.0.1 at port.
bool acceptsOnLoopback(int port);
