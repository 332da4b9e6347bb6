# Sourced after lib.sh ($src, $cgi, $urltool): a slow origin, for serve with a $delay ($oport),
# and 64 requests at once through $cgi for its image.
slow_origin() {
    spawn python3 "$src/tests/support/slow-origin.py" $port $delay 100000 && oport=$port
}
# How many came with each status and curl's verdict (0: received whole), and with each body.
at_once() {
    curl -sZ --parallel-immediate --parallel-max 64 -m 150 -o "$T/64-#1" \
        -w '%{http_code} %{exitcode}\n' "$(url http://127.0.0.1:$oport/x)&n=[1-64]" 2> /dev/null |
        sort | uniq -c
    sha256sum "$T"/64-* | cut -c -64 | uniq -c
}
whole() {
    printf '%7d %s\n' 64 '200 0' 64 $(curl -sm 20 127.0.0.1:$oport | sha256sum | cut -c -64)
}
peak() { curl -sm 10 127.0.0.1:$oport/peak; }
