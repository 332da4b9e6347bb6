# Varnish as a caching front for the web server that runs the program (as a
# CGI, or in FastCGI mode), here on 127.0.0.1:8080. The first request for an
# image runs the program; the next ones, conditional ones and HEAD included,
# are answered from the cache until the image's max-age runs out.
#
#   cp varnish.vcl /etc/varnish/default.vcl
#   systemctl restart varnish      # Debian's listens on port 6081
vcl 4.1;

backend tessavant {
    .host = "127.0.0.1";
    .port = "8080";
}

sub vcl_recv {
    if (req.method != "GET" && req.method != "HEAD") {
        return (pass);
    }
    # The program reads no cookie and no credentials; the reply is the
    # same for every client.
    unset req.http.Cookie;
    unset req.http.Authorization;
    return (hash);
}

sub vcl_hash {
    # p and i together name an image: the whole path and query is the key.
    hash_data(req.url);
    return (lookup);
}

sub vcl_backend_response {
    # Only images carry caching headers. Text replies (cmd=svr, e= errors)
    # have none and would otherwise be kept for Varnish's default TTL; a
    # reply that announces no body is not kept either.
    if (beresp.status != 200 || !beresp.http.Cache-Control ||
        beresp.http.Content-Length == "0") {
        set beresp.uncacheable = true;
        set beresp.ttl = 120s;
        return (deliver);
    }
}
