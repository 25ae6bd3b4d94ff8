"""Runs what manuals show: run_docs.py [--write] AGENT PPPOEIACTL FILE...
In each file, on an agent of its own: "```batch NAME" blocks become files of that name, "<!-- batch" comments are run as
batches, and in "```console" blocks each line behind "$ " is given to a shell and what it prints is compared with the
lines below it. --write puts these lines there."""
import os
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^(?:```(console|batch (\S+))\n(.*?)^```$|<!-- batch\n(.*?)^-->$)", re.M | re.S)


class Agent:
    """One agent, a shell's environment in which pppoeiactl reaches it, and a folder to work in."""

    def __init__(self, agent, ctl, folder):
        self.folder = folder
        socket = os.path.join(folder, "socket")
        node = os.path.join(folder, "node.conf")
        with open(node, "w", encoding="utf-8") as file:
            file.write("board_position=4\n")
        self.process = subprocess.Popen([agent, socket], env=dict(os.environ, PPPOEIA_NODE_CONF=node), stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.process.stdout.readline()
        wrapper = os.path.join(folder, "bin", "pppoeiactl")
        os.mkdir(os.path.dirname(wrapper))
        with open(wrapper, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\nexec {ctl} --socket {socket} "$@"\n')
        os.chmod(wrapper, 0o755)
        self.environment = dict(os.environ, PATH=os.path.dirname(wrapper) + ":" + os.environ["PATH"])

    def shell(self, command, text=""):
        done = subprocess.run(["/bin/bash", "-c", command], input=text, text=True, cwd=self.folder,
                              env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60,
                              check=False)
        return done.stdout

    def end(self):
        self.process.stdin.close()
        self.process.wait()


def run_block(agent, match, faults):
    console, name, body, hidden = match.groups()
    if hidden is not None:
        printed = agent.shell("pppoeiactl -batch -", hidden)
        if printed:
            faults.append(printed)
        return match.group(0)
    if name:
        with open(os.path.join(agent.folder, name), "w", encoding="utf-8") as file:
            file.write(body)
        return match.group(0)
    told = "".join(line + "\n" + agent.shell(line[2:]) for line in body.split("\n") if line.startswith("$ "))
    if told != body:
        faults.append(f"shown:\n{body}told:\n{told}")
    return f"```{console}\n{told}```"


def run_file(path, agent_program, ctl, write):
    faults = []
    with open(path, encoding="utf-8") as file:
        text = file.read()
    with tempfile.TemporaryDirectory(prefix="pppoeia-docs.") as folder:
        agent = Agent(os.path.abspath(agent_program), os.path.abspath(ctl), folder)
        try:
            told = BLOCK.sub(lambda match: run_block(agent, match, faults), text)
        finally:
            agent.end()
    if write and told != text:
        with open(path, "w", encoding="utf-8") as file:
            file.write(told)
        return 0
    for fault in faults:
        print(f"{path}: {fault}")
    return len(faults)


def main():
    arguments = sys.argv[1:]
    write = "--write" in arguments
    agent, ctl, *files = [word for word in arguments if word != "--write"]
    sys.exit(min(sum(run_file(path, agent, ctl, write) for path in files), 1))


main()
