"""A serving host for the tests: starts the agent, publishes its standard output as a console, and reads it."""
import os
import pathlib
import socket
import subprocess
import threading

MARK = b"\x01end\n"


class Host:
    """The agent PROGRAM on a prefix of its own; its console in FOLDER unless `published` is false."""

    def __init__(self, program, prefix, folder, published=True, tick_us=2000, **options):
        self.prefix = prefix
        self.path = str(folder / (prefix + ".console"))
        self.environment = {**os.environ, "LINE_ID_IPC_PREFIX": prefix, "LINE_ID_TICK_US": str(tick_us),
                            "LINE_ID_CONSOLE": self.path}
        self.process = subprocess.Popen([program], stdout=subprocess.PIPE, env=self.environment, bufsize=0, **options)
        self.printed = b""
        while b"lineid start ." not in self.printed:
            part = self.process.stdout.read(4096)
            assert part, "the agent does not start"
            self.printed += part
        self.readers = []
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) if published else None
        os.set_blocking(self.process.stdout.fileno(), False)
        if published:
            self.listener.bind(self.path)
            self.listener.listen()
            threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                reader, _ = self.listener.accept()
            except OSError:
                return
            self.readers.append(reader)
            threading.Thread(target=self.answer, args=(reader,), daemon=True).start()

    def answer(self, reader):
        try:
            while reader.recv(1) == b"?":
                part = self.process.stdout.read(1 << 20) or b""
                for each in self.readers:
                    each.sendall(part)
                reader.sendall(MARK)
        except OSError:
            pass
        self.readers.remove(reader)
        reader.close()

    def stop(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        if self.listener:
            self.listener.shutdown(socket.SHUT_RDWR)
            self.listener.close()
            os.unlink(self.path)
        for name in pathlib.Path("/dev/shm").glob(self.prefix + ".*"):
            name.unlink()


class Console:
    """A reader of a published console."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(30)
        self.socket.connect(path)
        self.lines()

    def lines(self):
        """What was printed since the last call."""
        self.socket.sendall(b"?")
        text = b""
        while not text.endswith(MARK):
            text += self.socket.recv(65536)
        return text[:-len(MARK)].decode(errors="replace").replace("\r", "")

    def close(self):
        self.socket.close()
