"""The virtual machine: QEMU, its control socket (QMP) and the shell in the guest."""
import json
import os
import socket
import subprocess
import time

BOOT_LIMIT = 600  # seconds
ANSWER_LIMIT = 180


class Broken(Exception):
    """The machine itself does not do what it is told: no verdict on the daemon."""


class Line:
    """A socket that is written to and read from by lines."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.pending = b""

    def write(self, text):
        self.socket.sendall(text.encode() + b"\n")

    def read(self, who, limit=ANSWER_LIMIT):
        self.socket.settimeout(limit)
        while b"\n" not in self.pending:
            try:
                data = self.socket.recv(65536)
            except OSError:
                data = b""
            if not data:
                raise Broken(f"no answer from {who}")
            self.pending += data
        line, self.pending = self.pending.split(b"\n", 1)
        return line.decode("utf-8", "replace").rstrip("\r")


class Machine:
    def __init__(self, world, system=False):
        """The machine with udev alone, or with the whole system; its processor is still stopped."""
        self.world = world
        self.drives = 0
        self.events = []
        control, shell, console = (os.path.join(world, name) for name in ("control", "shell", "tty"))
        for path in control, shell, console:
            if os.path.exists(path):
                os.unlink(path)
        self.process = subprocess.Popen([
            # The guest's time goes with its instructions, so a busy host makes it slow and not late.
            "qemu-system-x86_64", "-accel", "tcg", "-icount", "shift=3,sleep=on",
            "-m", "1024" if system else "512", "-smp", "1", "-nodefaults",
            "-display", "none", "-no-reboot", "-S",
            "-kernel", os.path.join(world, "vmlinuz"),
            "-initrd", os.path.join(world, "system.cpio" if system else "initramfs.cpio"),
            # On a busy host the timer may seem not to work: the kernel is told not to look. Its own errors are
            # not for the serial port, which is slow and not always read.
            "-append", "console=ttyS0 loglevel=2 panic=-1 sysrq_always_enabled no_timer_check" +
                       (" rdinit=/lib/systemd/systemd systemd.show_status=false" if system else ""),
            "-chardev", f"socket,id=console,path={console},server=on,wait=off,"
                        f"logfile={os.path.join(world, 'console.log')}",
            "-serial", "chardev:console",
            "-chardev", f"socket,id=shell,path={shell},server=on,wait=off",
            "-serial", "chardev:shell",
            "-qmp", f"unix:{control},server=on,wait=off",
            "-device", "qemu-xhci,id=xhci"], stdin=subprocess.DEVNULL)
        try:
            self.control = self.connect(control)
            self.shell = self.connect(shell)
            self.console = self.connect(console)
            self.control.read("QEMU")  # its greeting
            self.command("qmp_capabilities")
        except Broken:
            self.stop()
            raise

    def connect(self, path):
        for _ in range(100):
            try:
                return Line(path)
            except OSError:
                time.sleep(0.1)
        raise Broken("QEMU does not start")

    def stop(self):
        self.process.kill()
        self.process.wait()

    def boot(self):
        """Lets the machine, which is made with its processor stopped, go until the guest is ready."""
        self.command("cont")
        while self.shell.read("the guest", BOOT_LIMIT) != "=== ready":
            pass

    def explain(self):
        """Has the guest's kernel write to console.log what its processes do."""
        for key in "9wt":  # all messages to the console, blocked tasks, all tasks
            self.command("chardev-send-break", id="console")
            self.console.socket.sendall(key.encode())
            try:
                while True:  # the log file gets only what is taken from the socket
                    self.console.read("the kernel", 5)
            except Broken:
                pass  # it has said all

    def output(self, command):
        """All that a shell command in the guest printed, to the byte: its last line may have no end."""
        self.shell.write(command)
        lines = []
        while not lines or not lines[-1].startswith("=== "):
            try:
                lines.append(self.shell.read("the guest"))
            except Broken:
                self.explain()
                raise
        return "\n".join(lines[:-1])

    def run(self, command):
        """What a shell command in the guest printed, as a list of lines."""
        return self.output(command).splitlines()

    def command(self, name, **arguments):
        self.control.write(json.dumps({"execute": name, "arguments": arguments}))
        while True:
            answer = json.loads(self.control.read("QEMU"))
            if "event" in answer:
                self.events.append(answer)
            elif "error" in answer:
                raise Broken(f"{name}: {answer['error']['desc']}")
            else:
                return answer["return"]

    def plug_disk(self, image):
        # A drive goes with its device, so each plug makes one.
        self.drives += 1
        path = os.path.join(self.world, image)
        kind = "cdrom,readonly=on" if image.endswith(".iso") else "disk,snapshot=on"
        said = self.command("human-monitor-command", **{
            "command-line": f"drive_add 0 if=none,id=drive{self.drives},format=raw,media={kind},"
                            f"file={path}"})
        if said.strip() != "OK":
            raise Broken("drive_add: " + said.strip())
        self.command("device_add", driver="usb-storage", id="disk", bus="xhci.0",
                     drive=f"drive{self.drives}")

    def plug_port(self):
        self.command("chardev-add", id="port", backend={"type": "null", "data": {}})
        self.command("device_add", driver="usb-serial", id="port", bus="xhci.0", chardev="port",
                     serial="QARVELMobile-Pcui", **{"always-plugged": True})

    def pull(self, device):
        self.command("device_del", id=device)
        while True:
            for event in self.events:
                if event["event"] == "DEVICE_DELETED" and event["data"].get("device") == device:
                    self.events.clear()
                    if device == "port":
                        self.command("chardev-remove", id="port")
                    return
            answer = json.loads(self.control.read("QEMU"))
            self.events.append(answer)

    def change_disk(self, image):
        self.command("blockdev-change-medium", device=f"drive{self.drives}", format="raw",
                     filename=os.path.join(self.world, image), force=True)

    def press_eject(self):
        try:
            self.command("eject", device=f"drive{self.drives}", force=False)
        except Broken:
            pass  # a locked tray: the guest has the request now and opens it
