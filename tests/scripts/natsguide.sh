#!/usr/bin/env bash
# The page of the bus past one process, followed word for word: its shell blocks are run in one shell, its files written as
# they stand, but for the folder and the ports.
# natsguide.sh SOURCE BUILD
set -euo pipefail
guide=$1/docs/nats.md build=$2
. "$(dirname "$0")/common.sh"

install_build "$build"
export PATH=$PATH:/usr/sbin # where Debian has the broker
export RUNTIME_DIRECTORY=$folder/run
mkdir "$folder"/{run,srv}

# Two ports that nobody has: such as a broker is given that asks for any.
free_port() {
    local broker
    nats-server --addr 127.0.0.1 --port -1 --ports_file_dir "$folder" >/dev/null 2>&1 &
    broker=$!
    await nats:// "$folder/nats-server_$broker.ports"
    grep -oE '127.0.0.1:[0-9]+' "$folder/nats-server_$broker.ports" | cut -d: -f2
    kill "$broker"
    wait "$broker" || true
}
plain=$(free_port) guarded=$(free_port)

libraries=$(dirname "$(find "$folder/prefix" -name libzdefault.so.1)")
typed "$guide" | sed "s|/srv/|$folder/srv/|g; s|/usr/lib/\*|$libraries|; s|4222|$plain|g; s|4223|$guarded|g" >"$folder/script"

# What the reader waits for: a second is enough for him, but not for a busy machine.
patience() {
    cat <<'SH'
trap 'kill $(jobs -p) 2>/dev/null; wait' EXIT
sleep() {
    waits=$((${waits:-0} + 1))
    case $waits in
        1) asks=first asked=second ;;
        *) asks=shop asked=clock ;;
    esac
    for _ in $(seq 300); do
        ! zctl -c $srv/$asks.json call //nats/hosts 2>/dev/null | grep -q "\"$asked\"" || return 0
        command sleep 0.1
    done
    tail -n 20 $srv/*.log $srv/broker/log >&2
    echo "$asks does not find $asked" >&2
    return 1
}
SH
}

# What the page says beside: who may what, and that the broker has to be the one that its address names.
cat >"$folder/more" <<'SH'
zctl -c $srv/shop.json call //clock@zhost/printd >/dev/null
for _ in $(seq 100); do
    ! zctl -c $srv/clock.json call //nats/printd | grep -q '"state": "held"' || break
    command sleep 0.1
done
zctl -c $srv/clock.json call //nats/printd | grep '"state": "held"'
! zctl -c $srv/shop.json call //zhost@nobody/printd
! zctl -c $srv/clock.json call //shop@zhost/printd
is_connected() { zctl -c $srv/$1.json call //nats/printd 2>/dev/null | grep -q '"state": "connected"'; }
for name in named other; do
    mkdir -p $srv/$name/deployed $srv/$name/hot-deploy
    cp $srv/shop/deployed/libznats.so $srv/$name/deployed/
    sed "s|tls://localhost|tls://127.0.0.1|; s|srv/shop/|srv/$name/|g" $srv/shop.json >$srv/$name.json
done
sed -i 's|"tls": {|"tls": {"name": "localhost", |' $srv/named.json
zhost $srv/other.json 2>$srv/other.log &
zhost $srv/named.json 2>$srv/named.log &
until is_connected named; do command sleep 0.1; done
until zctl -c $srv/other.json status | grep -q running; do command sleep 0.1; done
! is_connected other
SH
bash -e -c "srv=$folder/srv
$(patience)
$(cat "$folder/script" "$folder/more")" 2>&1 | tee "$folder/said" || {
    tail -n +1 "$folder"/srv/*.log "$folder"/srv/broker/log
    fail "a command of the page fails"
}

grep -q '"state": "connected"' "$folder/said" || fail "no report of the connection"
for name in first second shop clock; do
    ! grep -E 'failed to|left running' "$folder/srv/$name.log" || fail "host $name has complained"
done
grep -q 'Subscription Violation.*z1.default.call.zhost' "$folder/srv/broker/log" || { cat "$folder"/srv/*.log "$folder/srv/broker/log"; fail "the broker lets anybody answer"; }
grep -Eq 'Publish Violation.*z1.default.at.shop.zhost' "$folder/srv/broker/log" ||
    fail "the clock's process may call others"
echo ok
