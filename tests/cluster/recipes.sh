#!/bin/sh
# The recipes of docs/scaling.md as they stand there: GNU parallel over two hosts of which one goes in mid-run, and a Slurm job
# array of which a task is sent back to the queue. Each fills a store with the bytes of a single run.
# recipes.sh BIN SOURCE
# BIN is the folder of the built programs. The hosts are two ssh servers of this machine, the cluster is a node of this machine;
# both end with the test. Needs GNU parallel, OpenSSH's client and server, and Slurm.
set -eu
bin=$(cd "$1" && pwd)
docs=$(cd "$2" && pwd)/docs/scaling.md
work=$(mktemp -d)
servers=
# shellcheck disable=SC2086 # a list of numbers
trap 'kill $servers 2>/dev/null || true; wait; rm -rf "$work"' EXIT
cd "$work"
PATH=$bin:$PATH:/usr/sbin:/sbin
export PATH
port=$((20000 + $$ % 10000)) # and a few more

fail() {
    echo "$*"
    exit 1
}

# The block marked sh below a heading.
recipe() { # HEADING
    awk -v heading="## $1" '$0 == heading { on = 1 } on && /^```/ { if (++n == 2) exit; next } on && n == 1' "$docs"
}

expect_whole() { # WHAT
    find pano.zarr -name '*.part' -delete # of what was ended in mid-run
    diff -r pano.zarr whole.zarr || fail "$1: other bytes than those of a single run"
    rm -rf pano.zarr
    echo "$1: the bytes of a single run"
}

wait_for() { # WHAT COMMAND...
    what=$1
    shift
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || fail "$what does not answer: $(cat ./*.log)"
        sleep 0.1
    done
}

# More tiles than tasks.
make_scene . >/dev/null
panoval stitch --layout layout.json -o plan.json --plan-only --tile-size 200 --quiet
panoval stitch --plan plan.json -o whole.zarr --quiet

# ---- GNU parallel ----------------------------------------------------------------------------------------------------

ssh-keygen -q -t ed25519 -N '' -f key
start_host() { # NUMBER
    cat >"sshd$1.conf" <<TEXT
ListenAddress 127.0.0.1$1
Port $((port + $1))
HostKey $work/key
AuthorizedKeysFile $work/key.pub
StrictModes no
UsePAM no
PidFile none
SetEnv PATH=$PATH
TEXT
    printf 'Host host%s\n HostName 127.0.0.1%s\n Port %s\n' "$1" "$1" $((port + $1)) >>ssh.conf
    [ "$(id -u)" -ne 0 ] || mkdir -p /run/sshd
    /usr/sbin/sshd -D -e -f "sshd$1.conf" 2>"sshd$1.log" &
    eval "host$1=$!"
    servers="$servers $!"
    wait_for "host$1" ssh -F ssh.conf "host$1" true
}
cat >ssh.conf <<TEXT
IdentityFile $work/key
StrictHostKeyChecking no
UserKnownHostsFile /dev/null
LogLevel ERROR
TEXT
start_host 1
start_host 2
PARALLEL_SSH="ssh -F $work/ssh.conf"
PARALLEL_HOME=$work/parallel
mkdir "$PARALLEL_HOME"
touch "$PARALLEL_HOME/will-cite"
export PARALLEL_SSH PARALLEL_HOME

recipe "GNU parallel over several hosts" >parallel.sh
grep -q -- '--sshlogin 8/host1,8/host2' parallel.sh || fail "no such recipe in $docs"
sh -e parallel.sh 2>parallel.log &
running=$!
both_made() { [ "$(awk '{ ++n[$2] } END { print (n["host1"] > 4 && n["host2"] > 4) }' jobs.log)" = 1 ]; }
wait_for "GNU parallel" both_made
# shellcheck disable=SC2154 # start_host sets it
kill "$host2"
wait $running || fail "the recipe fails: $(cat parallel.log)"
expect_whole "GNU parallel over two hosts, of which one goes"

# ---- Slurm -----------------------------------------------------------------------------------------------------------

name=$(hostname -s)
cat >slurm.conf <<TEXT
ClusterName=test
SlurmctldHost=$name(127.0.0.1)
SlurmUser=$(id -un)
SlurmdUser=$(id -un)
SlurmctldPort=$((port + 3))
SlurmdPort=$((port + 4))
AuthType=auth/none
CredType=cred/none
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
SwitchType=switch/none
MpiDefault=none
SchedulerParameters=batch_sched_delay=0,sched_interval=1
NodeName=$name NodeAddr=127.0.0.1 CPUs=4 Boards=1 SocketsPerBoard=1 CoresPerSocket=4 RealMemory=4096 State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES State=UP
SlurmdParameters=config_overrides
TEXT
mkdir state spool
SLURM_CONF=$work/slurm.conf
export SLURM_CONF
slurmctld -D >slurmctld.log 2>&1 &
servers="$servers $!"
slurmd -D >slurmd.log 2>&1 &
servers="$servers $!"
is_idle() { sinfo --noheader --format=%T | grep -q idle; }
wait_for "the cluster" is_idle

recipe "A Slurm job array" >tiles.sh
grep -q '^#SBATCH --array=0-59' tiles.sh || fail "no such recipe in $docs"
sbatch --wait tiles.sh >sbatch.log &
waiting=$!
has_begun() { ls pano.zarr/.panoval/tiles/* && squeue --noheader --states=running --format=%i | grep .; }
wait_for "the job array" has_begun
back=$(squeue --noheader --states=running --format=%i | head -n 1)
scontrol requeue "$back" || echo "task $back was through already"
# A task that is sent back waits for two minutes, from when it has ended.
while kill -0 $waiting 2>/dev/null; do
    scontrol update JobId="$back" StartTime=now >/dev/null 2>&1 || true
    sleep 0.5
done
wait $waiting || fail "the job array fails: $(cat slurm-*.out slurmctld.log)"
expect_whole "a Slurm job array"
