#!/usr/bin/env python3
"""Fails if a library or platform source outside the Linux backend uses a Linux-only interface.

The library and the platform layer must compile on every host (iOS, Android, macOS, Linux); only
Platform/QENHost/Linux/ may include Linux-only headers or read /proc and /sys.
Usage: check_single_os_interfaces.py REPOSITORY_ROOT
"""
import pathlib
import re
import sys

LINUX_ONLY_HEADER = re.compile(
    r'#\s*include\s*<(linux/|asm/|gnu/|sys/(random|syscall|epoll|inotify|sysinfo|prctl|eventfd|'
    r'timerfd|signalfd|sendfile|fanotify|personality|klog|vfs|statfs)\.h|features\.h|malloc\.h|'
    r'mcheck\.h|execinfo\.h)')
LINUX_ONLY_CALL = re.compile(r'\b(getrandom|syscall|epoll_\w+|inotify_\w+|prctl)\s*\(')
LINUX_ONLY_PATH = re.compile(r'"/(proc|sys)/')
ALLOWED = pathlib.PurePosixPath('Platform/QENHost/Linux')


def offences(root):
    for folder in ('QENPerformanceLogger', 'Platform'):
        for path in sorted((root / folder).rglob('*')):
            relative = path.relative_to(root)
            if path.suffix not in ('.h', '.hpp', '.cpp', '.cc', '.in') or relative.is_relative_to(ALLOWED):
                continue
            for number, line in enumerate(path.read_text(errors='replace').splitlines(), 1):
                code = line.split('//', 1)[0]
                for pattern in (LINUX_ONLY_HEADER, LINUX_ONLY_CALL, LINUX_ONLY_PATH):
                    if pattern.search(code):
                        yield f'{relative}:{number}: {line.strip()}'


def main():
    found = list(offences(pathlib.Path(sys.argv[1])))
    for offence in found:
        print(offence)
    print(f'{len(found)} Linux-only uses outside Platform/QENHost/Linux')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
