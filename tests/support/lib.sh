# For the shell tests, bench/run and scripts/demo: $T, servers that end with the script, checks.
T=$(mktemp -d /tmp/tessavant-XXXXXX) pids=() failures=0
cleanup() { for p in ${pids[@]}; do stop $p; done; rm -rf $T; }
trap cleanup EXIT && trap 'exit 1' INT TERM
fail() { echo "FAIL: $*" >&2; tail -n 20 $T/*.log 2> /dev/null; exit 1; }
skip() { echo "skipped: $*"; exit 77; }
busy() { (exec 3<> /dev/tcp/${2:-127.0.0.1}/$1) 2> /dev/null; }  # PORT [HOST]
free_port() {  # [TAKEN...]: below the ephemeral range
    for _ in {1..50}; do
        port=$((20000 + RANDOM % 12000))
        [[ " $* " == *" $port "* ]] || busy $port || { echo $port; return; }
    done
    false
}
# As root the servers' workers run as $user; others need a user namespace for spawn.
need_namespaces() {
    [ $(id -u) != 0 ] || { user=www-data && chown -R $user: $T && return; }
    unshare -Ucpf true 2> /dev/null || skip "no pid namespace for this user (a chroot?)"
}
again() {  # UNSHARE-FLAGS ARGS...: runs the script again as root, in namespaces of its own
    [ $(id -u) = 0 ] || skip "the namespaces need root"
    mountpoint -q / || skip "/ is not a mount point (a chroot?): mounts would leak"
    rm -rf $T && exec unshare $1 "$0" "${@:2}" --inside
}
# spawn COMMAND...: $pid, in a pid namespace whose shell gets SIGKILL however the script ends.
spawn() {
    local u= && [ $(id -u) = 0 ] || u=-Uc
    setpriv --pdeathsig KILL unshare $u -pf --kill-child=KILL /bin/sh -c \
        'trap "kill \$p; wait \$p" TERM; "$@" & p=$!; wait $p' spawn "$@" &
    pid=$! && pids+=($pid)
}
# wait_for PID COMMAND...: true once COMMAND succeeds, false once PID has ended or after 10 s.
wait_for() {
    for _ in {1..100}; do "${@:2}" && return; kill -0 $1 2> /dev/null || return; sleep 0.1; done
    false
}
stop() {  # SIGTERM through spawn's shell (unshare ignores it), SIGKILL after 10 s
    kill $(cat /proc/$1/task/$1/children 2> /dev/null) $1 2> /dev/null || return 0
    { wait_for $1 false || kill -KILL $1; wait $1; } 2> /dev/null || :
}
# serve COMMAND...: it spawns a server on a free $port, which must listen.
serve() { port=$(free_port) && "$@" && wait_for $pid busy $port || fail "no $1 on port $port"; }
nginx_site() {  # FILE [DIRECTIVES]: nginx on 127.0.0.1:$port with a site from deploy/
    cp /etc/nginx/fastcgi_params $T && sed "s|listen 80;|listen 127.0.0.1:$port;|; /listen \[/d" \
        "$1" > $T/site.conf
    echo "pid $T/nginx.pid; ${user:+user $user;} events {} http { ${2:-access_log off;}
        include site.conf; client_body_temp_path $T/b; fastcgi_temp_path $T/f;
        proxy_temp_path $T/p; uwsgi_temp_path $T/u; scgi_temp_path $T/s; }" > $T/nginx.conf
    spawn /usr/sbin/nginx -e $T/error.log -c $T/nginx.conf -g 'daemon off;'
}
url() { "$urltool" --base "$cgi" pw "$1"; }
check() {  # NAME EXPECTED ACTUAL
    [ "$2" != "$3" ] || { echo "ok   $1"; return; }
    echo "FAIL $1" && ((++failures)) && diff <(echo "$2") <(echo "$3") | sed 's/^/     /' || :
}
finish() { [ $failures = 0 ] || fail "$failures check(s) failed"; echo "all checks passed"; }
