"""A runner process, its scenarios and its answers."""

import json
import subprocess
import threading


class Ended(Exception):
    """The runner's output ended early."""


class Runner:
    """One process. Scenarios go in from a thread of their own, so that neither side waits for the other."""

    def __init__(self, command):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        hello = self.process.stdout.readline()
        if not hello:
            raise Ended(self.end())
        self.numbers = json.loads(hello)

    def feed(self, scenarios):
        def write():
            try:
                for scenario in scenarios:
                    text = json.dumps(scenario, separators=(",", ":")) + "\n"
                    self.process.stdin.write(text.encode())
                self.process.stdin.flush()
            except BrokenPipeError:
                pass
        thread = threading.Thread(target=write, daemon=True)
        thread.start()
        return thread

    def lines(self, count):
        """The next result lines; fewer when the runner ended."""
        out = []
        for _ in range(count):
            line = self.process.stdout.readline()
            if not line.endswith(b"\n"):
                break
            out.append(line[:-1].decode(errors="replace"))
        return out

    def end(self):
        """Ends the process and says how it ended."""
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        self.process.stdout.close()
        try:
            code = self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            code = self.process.wait()
        return f"signal {-code}" if code < 0 else f"exit {code}"


def execute(command, scenario, patience=5):
    """One scenario in a process of its own, killed after `patience` seconds: its result lines and its ending."""
    runner = Runner(command)
    watch = threading.Timer(patience, runner.process.kill)
    watch.start()
    thread = runner.feed([{**scenario, "flush": 1}])
    lines = runner.lines(len(scenario["steps"]))
    thread.join()
    ending = runner.end()
    watch.cancel()
    return lines, ending
