# Sourced after lib.sh by run-deploy-tests and run-systemd-test ($src, $urltool):
# 64 remote requests at once, for the body of a slow origin.
# slow_origin DELAY: tests/support/slow-origin.py on a free $oport (pid $origin);
# its body fetched directly, in the background, into $T/origin.bin.
slow_origin() {
    oport=$(free_port) && spawn /usr/bin/python3 "$src/tests/support/slow-origin.py" \
        "$oport" "$1" 100000 && origin=$pid
    wait_for "$pid" busy "$oport" || fail "no slow origin on 127.0.0.1:$oport"
    { curl -sS --max-time 20 -o "$T/origin.part" "http://127.0.0.1:$oport/x" &&
        mv "$T/origin.part" "$T/origin.bin"; } &
}
# at_once BASE: 64 requests at once through BASE, each with a query of its own: how many
# came with each status, curl's verdict (0: received whole) and body (the origin's or other).
at_once() {
    wait_for "$origin" test -f "$T/origin.bin" || fail "no body from the slow origin"
    local sum && sum=$(sha256sum < "$T/origin.bin") && mkdir "$T/64"
    curl -s --no-progress-meter --max-time 150 --parallel --parallel-immediate \
        --parallel-max 64 -o "$T/64/#1" -w '%{http_code} %{exitcode} %{filename_effective}\n' \
        "$("$urltool" --base "$1" pw "http://127.0.0.1:$oport/x")&n=[1-64]" |
        while read -r code verdict file; do
            [ "$(sha256sum < "$file")" = "$sum" ] && file=exact || file=other
            echo "$code $verdict $file"
        done 2> /dev/null | sort | uniq -c
}
whole() { printf '%7d %s\n' 64 '200 0 exact'; }
peak() { curl -sS --max-time 10 "http://127.0.0.1:$oport/peak"; }
