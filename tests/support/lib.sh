# For the shell tests, bench/run, scripts/demo: $T, servers ending with the script, checks.
T=$(mktemp -d /tmp/tessavant-XXXXXX) pids=() src=$(realpath -m ${0%/*}/../..)
cleanup() { for p in ${pids[@]}; do stop $p; done; rm -rf $T; }
trap cleanup EXIT && trap 'exit 1' INT TERM
fail() { echo "FAIL: $*" >&2; tail -n 20 $T/*.log 2> /dev/null; exit 1; }
skip() { echo "skipped: $*"; exit 77; }
busy() { (exec 3<> /dev/tcp/${2:-127.0.0.1}/$1) 2> /dev/null; }  # PORT [HOST]
free_port() {  # [TAKEN...]: below the ephemeral range
    for port in $(shuf -i 20000-31999 -n 50); do
        [[ " $* " == *" $port "* ]] || busy $port || { echo $port; return; }
    done
    false
}
# Workers run as $user for root, else spawn needs a user namespace.
need_namespaces() {
    [ $(id -u) != 0 ] || { user=www-data && chown -R $user: $T && return; }
    unshare -Ucpf true 2> /dev/null || skip "no pid namespace for this user (a chroot?)"
}
again() {  # UNSHARE-FLAGS ARGS...: the script again, in namespaces of its own
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
wait_for() {  # PID COMMAND...: true once COMMAND is, false once PID has ended or after 10 s
    for _ in {1..100}; do "${@:2}" && return; kill -0 $1 2> /dev/null || return; sleep 0.1; done
    false
}
stop() {  # SIGTERM through spawn's shell (unshare ignores it), SIGKILL after 10 s
    kill $(cat /proc/$1/task/$1/children 2> /dev/null) $1 2> /dev/null || return 0
    { wait_for $1 false || kill -KILL $1; wait $1; } 2> /dev/null || :
}
serve() { port=$(free_port) && "$@" && wait_for $pid busy $port || fail "no $1 on port $port"; }
nginx_site() {  # FILE [DIRECTIVES]: nginx on 127.0.0.1:$port with a site from deploy/
    cp /etc/nginx/fastcgi_params $T && sed "s|listen 80;|listen 127.0.0.1:$port;|; /listen \[/d" \
        "$1" > $T/site.conf
    echo "daemon off; pid $T/nginx.pid; ${user:+user $user;} events {} http { ${2:-access_log off;}
        include site.conf; $(for t in client_body fastcgi proxy uwsgi scgi; do
        echo "${t}_temp_path $T/$t;"; done) }" > $T/nginx.conf
    spawn /usr/sbin/nginx -e $T/error.log -c $T/nginx.conf
}
# deploy/'s files with paths in $T; lighttpd with them for $T/www, https on $tls
edit() { sed "s|/usr/lib/cgi-bin|$T/cgi-bin|g; s,/run/\(lighttpd/\|tessavant/\)\?,$T/,g" "$@"; }
lighttpd() {
    tls=$(free_port $port) && openssl req -x509 -newkey rsa -nodes -subj /CN=x -keyout $T/c \
        -out $T/c 2> $T/openssl.log
    cat > $T/l.conf <<EOF
server.document-root = "$T/www" server.bind = "127.0.0.1" server.port = $port
mimetype.assign = ("" => "a/b")  # with a type, lighttpd sends Last-Modified
server.modules = ("mod_openssl") include "$T/tessavant.conf"
\$SERVER["socket"] == "127.0.0.1:$tls" { ssl.engine = "enable" ssl.pemfile = "$T/c" }
${user:+server.username = \"$user\" server.groupname = \"$user\"}
EOF
    spawn /usr/sbin/lighttpd -D -f $T/l.conf
}
url() { "$urltool" --base "$cgi" pw "$1"; }
check() { [ "$2" = "$3" ] || diff <(echo "$2") <(echo "$3") || fail "$1"; }  # NAME EXPECTED ACTUAL
