"""A Slurm cluster of one node with two processors, on loopback, with nothing outside a folder of its own.

    cluster.py FOLDER     starts one there and stops it at Ctrl-C; prints what other shells need to use it
"""

import ctypes
import os
import pathlib
import secrets
import shutil
import signal
import socket
import subprocess
import sys
import time
from datetime import datetime

PROCESSORS = 2


def why_not() -> str:
    """Why there can be no cluster here, or nothing."""
    for program in ("munged", "slurmctld", "slurmd", "sbatch"):
        if not shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin"):
            return f"there is no {program}: install slurm-wlm and munge"
    return "" if os.geteuid() == 0 else "slurmd needs root here"


def free_ports(count: int) -> list[int]:
    sockets = [socket.socket() for _ in range(count)]
    try:
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]
    finally:
        for one in sockets:
            one.close()


def wait_until(reached, what: str, seconds: float = 60, pause: float = 0.05):
    """Returns what `reached` returns once that is true."""
    deadline = time.monotonic() + seconds
    while not (found := reached()):
        if time.monotonic() > deadline:
            raise TimeoutError(what)
        time.sleep(pause)
    return found


def die_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)


class Cluster:
    """`folder` must be owned by root, its parents not writable by others without the sticky bit."""

    def __init__(self, folder: pathlib.Path, max_array: int = 1001):
        self.folder = folder
        self.daemons: dict[str, subprocess.Popen] = {}
        for name in ("state", "spool", "munge"):
            (folder / name).mkdir(parents=True)
        for one in (folder, folder / "munge"):
            one.chmod(0o755)
        host = socket.gethostname().split(".")[0]
        controller, node = free_ports(2)
        # A job that names no memory is given its processors' share, not the whole node.
        megabytes = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") >> 20
        (folder / "slurm.conf").write_text(f"""\
ClusterName=viewtint
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={controller}
SlurmdPort={node}
CommunicationParameters=NoCtldInAddrAny,NoInAddrAny
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket={folder}/munge/socket
StateSaveLocation={folder}/state
SlurmdSpoolDir={folder}/spool
SlurmctldPidFile={folder}/slurmctld.pid
SlurmdPidFile={folder}/slurmd.pid
SlurmctldLogFile={folder}/slurmctld.log
SlurmdLogFile={folder}/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core_Memory
SlurmdParameters=config_overrides
MpiDefault=none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
# A node that is gone is missed within seconds, and taken back when it returns.
ReturnToService=2
SlurmdTimeout=5
MessageTimeout=3
BatchStartTimeout=2
KillWait=2
MaxArraySize={max_array}
# The next task starts as soon as one ends; by default it waits up to two seconds.
SchedulerParameters=sched_min_interval=1000,batch_sched_delay=0
NodeName={host} NodeAddr=127.0.0.1 CPUs={PROCESSORS} RealMemory={megabytes} State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE State=UP DefMemPerCPU={megabytes // PROCESSORS}
""")
        self.environment = os.environ | {"SLURM_CONF": str(folder / "slurm.conf")}

    def __enter__(self):
        key = self.folder / "munge" / "key"
        key.write_bytes(secrets.token_bytes(1024))
        key.chmod(0o600)
        munge = self.folder / "munge"
        try:
            self.start("munged", "--foreground", f"--socket={munge}/socket", f"--key-file={key}",
                       f"--pid-file={munge}/pid", f"--log-file={munge}/log", f"--seed-file={munge}/seed")
            wait_until((munge / "socket").exists, "munged")
            self.start("slurmctld", "-D")
            self.start("slurmd", "-D")
            wait_until(lambda: "idle" in self.run("sinfo", "--noheader", "--format=%T", check=False), "the node")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        if "slurmctld" in self.daemons:
            self.run("scancel", f"--user={os.getuid()}", check=False)
        for name in ("slurmctld", "slurmd", "munged"):
            if name in self.daemons:
                self.stop(name)
        self.kill_jobs()

    def start(self, name: str, *words: str):
        program = shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin")
        self.daemons[name] = subprocess.Popen([program, *words], env=self.environment, cwd=self.folder,
                                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                              stderr=subprocess.DEVNULL, preexec_fn=die_with_parent)

    def stop(self, name: str, how=signal.SIGTERM):
        daemon = self.daemons.pop(name)
        daemon.send_signal(how)
        try:
            daemon.wait(10)
        except subprocess.TimeoutExpired:
            daemon.kill()
            daemon.wait()

    def run(self, *words: str, check: bool = True) -> str:
        done = subprocess.run(words, env=self.environment, capture_output=True, text=True, timeout=60)
        assert done.returncode == 0 or not check, f"{words}: {done.stdout}{done.stderr}"
        return done.stdout

    def processes(self) -> dict[int, str]:
        """Command lines of what runs for jobs, by process id."""
        ours = f"SLURM_CONF={self.environment['SLURM_CONF']}\0".encode()
        daemons = {daemon.pid for daemon in self.daemons.values()} | {os.getpid()}
        found = {}
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                environment = (folder / "environ").read_bytes()
                command = (folder / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace")
            except OSError:
                continue
            of_a_job = b"SLURM_JOB_ID=" in environment or command.startswith("slurmstepd")
            if ours in environment and of_a_job and int(folder.name) not in daemons:
                found[int(folder.name)] = command
        return found

    def kill_jobs(self):
        for process in self.processes():
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def node_dies(self, with_jobs: bool):
        self.stop("slurmd", signal.SIGKILL)
        if with_jobs:
            self.kill_jobs()

    def node_returns(self):
        self.start("slurmd", "-D")

    def queue(self) -> list[tuple[str, str]]:
        """Job or task, and state, of what hasn't ended."""
        lines = self.run("squeue", "--noheader", "--array", "--format=%i|%T").splitlines()
        return [tuple(line.split("|")) for line in lines]

    def start_delayed(self):
        """Requeued jobs wait two minutes, so that nodes have forgotten their credentials. Some seconds do."""
        waiting = self.run("squeue", "--noheader", "--array", "--states=PENDING", "--format=%i|%r|%S")
        for job, reason, start in (line.split("|") for line in waiting.splitlines()):
            if reason != "BeginTime" or start == "N/A":
                continue
            if (datetime.fromisoformat(start) - datetime.now()).total_seconds() < 117:
                self.run("scontrol", "update", f"JobId={job}", "StartTime=now", check=False)

    def wait(self, seconds: float = 120):
        """Until the queue is empty."""

        def empty():
            self.start_delayed()
            return not self.queue()

        wait_until(empty, "the queue", seconds, pause=0.2)


def main():
    folder = pathlib.Path(sys.argv[1]).absolute() if len(sys.argv) == 2 else sys.exit(__doc__)
    if reason := why_not():
        sys.exit(reason)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    with Cluster(folder) as cluster:
        print(f"export SLURM_CONF={cluster.environment['SLURM_CONF']}", flush=True)
        try:
            signal.pause()
        except KeyboardInterrupt:
            pass


if __name__ == "__main__":
    main()
