#include "file/HttpFile.h"

#include <utility>

#include "base/Exception.h"
#include "base/Policy.h"
#include "net/HttpsConnection.h"
#include "net/Url.h"

HttpFile::HttpFile(std::string reference) {
    std::string current = std::move(reference);
    for (int followed = 0;; ++followed) {
        if (connection) {
            connection->close();
            connection.reset();
        }
        // A relative location ("/b.gif") or a local-looking path is not a
        // remote reference at all; say so rather than call it an invalid URL.
        if (current.find("://") == std::string::npos)
            throw Exception("HttpFile::HttpFile", current + " is not supported", -1);
        Url url(current);
        if (Policy::ENABLED && (url.isHttp() || url.isHttps())) {
            Policy::checkRedirects(followed);
            Policy::checkHost(url.host);
        }
        if (url.isHttp()) {
            connection.reset(new HttpConnection(url.host.c_str(), url.port));
        } else if (url.isHttps()) {
            connection.reset(new HttpsConnection(url.host.c_str(), url.port));
        } else {
            throw Exception("HttpFile::HttpFile", current + " is not supported", -1);
        }
        connection->request(url.path.c_str());
        if (connection->status == 200) {
            if (Policy::ENABLED)
                Policy::checkLength(current,
                                    connection->getHeader().getFirstValue("content-length"),
                                    connection->getHeader().getFirstValue("transfer-encoding"));
            return;
        }
        if (!connection->redirected())
            throw Exception("HttpFile::HttpFile", connection->getHeaderText(), -1);
        current = connection->redirection();
    }
}

// An abandoned connection, also on the failure paths above, is released by
// the owning pointer.
HttpFile::~HttpFile() {
    if (connection)
        connection->close();
}

int HttpFile::read(char* buffer, int size) {
    return connection->read(buffer, size);
}

int HttpFile::length() {
    return connection->getLength();
}

std::string HttpFile::modifiedTime() {
    return connection->getLastMidified();
}
