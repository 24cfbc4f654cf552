"""A shim of one's own, started as the agent would."""

import os
import shutil
import subprocess

import bare
from world import wait_until


class Shim:
    def __init__(self, build, name, image):
        disk = f"/run/bench/{name}.disk"
        shutil.copy(image, disk)
        self.monitor = f"/run/{name}.monitor"
        words = ("-S -M pc -enable-kvm -smp 1 -nodefaults -nodefconfig -no-user-config "
                 "-rtc base=utc -chardev pty,id=serial0 -device isa-serial,chardev=serial0 "
                 f"-m {bare.MEMORY} -name {name} -chardev socket,id=monitor,path={self.monitor},"
                 "server,nowait -mon chardev=monitor,mode=control -usb "
                 "-device usb-tablet,id=input0 -nographic -device cirrus-vga -boot order=dc "
                 f"-drive file={disk},if=none,id=ide-drive0 "
                 "-device ide-hd,drive=ide-drive0,bus=ide.0,unit=0").split()
        os.makedirs("/run/shims", exist_ok=True)
        self.process = subprocess.Popen(
            [build / "shim/vmagent-shim", *words],
            env=os.environ | {"VMAGENT_QEMU": bare.QEMU, "VMAGENT_RUN_DIR": "/run/shims",
                              "VMAGENT_ACCEL": "tcg"})
        wait_until(lambda: os.path.exists(self.monitor), "the shim to listen")

    def end(self):
        self.process.kill()
        self.process.wait()
