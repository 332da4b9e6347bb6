# For the shell tests, bench/run and scripts/demo: $T, servers that die with the script, bounded waits, checks.
T=$(mktemp -d /tmp/tessavant-XXXXXX) pids=() failures=0
cleanup() { for p in "${pids[@]}"; do stop "$p"; done; rm -rf "$T"; }
trap cleanup EXIT && trap 'exit 1' INT TERM
fail() { echo "FAIL: $*"; tail -n 20 "$T"/*.log 2> /dev/null; exit 1; }

busy() { (exec 3<> "/dev/tcp/127.0.0.1/$1") 2> /dev/null; }
# A port below the ephemeral range that nothing listens on, other than the ports given (chosen, not listening yet).
free_port() {
    for _ in {1..50}; do port=$((20000 + RANDOM % 12000)); [[ " $* " == *" $port "* ]] || busy "$port" || { echo "$port"; return; }; done
    fail "no free port on 127.0.0.1"
}
# Servers live in a pid namespace to die with the test (a user who can make none skips); as root their workers are $user, who owns $T.
need_namespaces() {
    [ "$(id -u)" -ne 0 ] || { user=www-data && chown -R www-data: "$T" && return; }
    unshare --user --map-current-user --pid --fork true 2> /dev/null || { echo "skipped: no pid namespace for this user (a chroot?)"; exit 77; }
}
# Starts "$@" ($pid, $pids) in a pid namespace whose shell gets SIGKILL however this script ends (not lost by setuid).
spawn() {
    local ns=(unshare --pid --fork --kill-child=KILL)
    [ "$(id -u)" -eq 0 ] || ns+=(--user --map-current-user)
    setpriv --pdeathsig KILL -- "${ns[@]}" -- /bin/sh -c 'trap "kill \$p; wait \$p" TERM; "$@" & p=$!; wait $p' spawn "$@" &
    pid=$! && pids+=("$pid")
}
# wait_for PID COMMAND...: true once COMMAND succeeds, false once PID has ended or after 10 seconds.
wait_for() { for _ in {1..100}; do "${@:2}" && return 0; kill -0 "$1" 2> /dev/null || return 1; sleep 0.1; done; return 1; }
# SIGTERM to what spawn started as $1 (through its shell: unshare ignores it), SIGKILL after 10 seconds.
stop() {
    kill -TERM $(cat "/proc/$1/task/$1/children" 2> /dev/null) "$1" 2> /dev/null || return 0
    { wait_for "$1" false || kill -KILL "$1"; wait "$1"; } 2> /dev/null || true
}
# serve COMMAND...: runs COMMAND with a free $port, to spawn a server there; fails unless that listens.
serve() { port=$(free_port); "$@"; wait_for "$pid" busy "$port" || fail "$1 does not listen on 127.0.0.1:$port"; }
# nginx_site FILE [DIRECTIVES]: nginx with the server of FILE, a site from deploy/, on 127.0.0.1:$port.
nginx_site() {
    cp /etc/nginx/fastcgi_params "$T/" && sed "s|listen 80;|listen 127.0.0.1:$port;|; /listen \[/d" "$1" > "$T/site.conf"
    echo "pid $T/nginx.pid; ${user:+user $user;} events {} http { ${2:-access_log off;} include site.conf;
        client_body_temp_path $T/b; fastcgi_temp_path $T/f; proxy_temp_path $T/p; uwsgi_temp_path $T/u; scgi_temp_path $T/s; }" > "$T/nginx.conf"
    spawn /usr/sbin/nginx -e "$T/error.log" -c "$T/nginx.conf" -g 'daemon off;'
}
# check NAME EXPECTED ACTUAL: counts a failure and shows the difference.
check() {
    [ "$2" != "$3" ] || { echo "ok   $1"; return 0; }
    echo "FAIL $1" && failures=$((failures + 1)) && diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/     /' || true
}
finish() { [ "$failures" -eq 0 ] || fail "$failures check(s) failed"; echo "all checks passed"; }
