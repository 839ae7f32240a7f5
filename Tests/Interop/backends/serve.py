#!/usr/bin/python3
# A server for the tests that need one, as a CTest fixture's set-up and clean-up.
#   serve.py start STATE_FILE READY_PATTERN COMMAND...
#       Chooses two free loopback ports, given to COMMAND as {port0} and {port1} in its arguments
#       and as QEN_PORT_0 and QEN_PORT_1 in its environment; starts COMMAND in the background and
#       waits for the line of its output that READY_PATTERN matches; then writes the two ports and
#       the server's process id into STATE_FILE. The server's output goes to STATE_FILE.log.
#   serve.py stop STATE_FILE    stops the server and what it started.
import os
import random
import re
import signal
import socket
import subprocess
import sys


def bindable(port):
    with socket.socket() as probe:
        try:
            return probe.bind(("127.0.0.1", port)) is None
        except OSError:
            return False


def free_ports(count):
    """Ports no one holds, below Linux's ephemeral range, so that no socket another test binds
    to port 0 takes one before the server does."""
    ports = [port for port in random.sample(range(20000, 32768), 100) if bindable(port)][:count]
    if len(ports) < count:
        raise RuntimeError("no free loopback port")
    return ports


def start(state_file, pattern, command):
    ports = free_ports(2)
    command = [argument.format(port0=ports[0], port1=ports[1]) for argument in command]
    environment = {**os.environ, "QEN_PORT_0": str(ports[0]), "QEN_PORT_1": str(ports[1])}
    # The server and what drains its output hold none of this process's streams, or the test
    # runner would wait for them to end.
    server = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, env=environment, start_new_session=True)
    with open(state_file + ".log", "wb") as log:
        for line in server.stdout:  # each line as the server prints it: no polling
            log.write(line)
            if re.search(pattern, line.decode(errors="replace")):
                break
        else:
            print(f"{command[0]} ended before serving (no line matched {pattern!r}); "
                  f"its output: {state_file}.log")
            return 1
        # Something must go on reading the server's output, or it blocks once the pipe is full.
        subprocess.Popen(["cat"], stdin=server.stdout, stdout=log, stderr=subprocess.DEVNULL,
                         start_new_session=True)
    with open(state_file, "w") as state:
        state.write(f"{ports[0]} {ports[1]} {server.pid}\n")
    return 0


def stop(state_file):
    with open(state_file) as state:
        pid = int(state.read().split()[-1])
    try:
        os.killpg(pid, signal.SIGKILL)  # its storage is memory: nothing to shut down cleanly
    except ProcessLookupError:
        pass
    os.remove(state_file)
    return 0


if __name__ == "__main__":
    action, state_file, *rest = sys.argv[1:]
    sys.exit(start(state_file, rest[0], rest[1:]) if action == "start" else stop(state_file))
