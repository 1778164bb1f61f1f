"""Phones, records with a past, and the station that serves the page."""
import os
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

import hostile_phone

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
BUILD = os.path.realpath(sys.argv[1])
STATION = f'{BUILD}/bin/station'
NAME = f'page{os.getpid()}'
SERIALS = ['CV0A0A0A01', 'CV0A0A0A02']
PLAN = r'''
wait 30
unit usb-serial
phase identity
get-prop ro.build.id =~ ^RKQ1 as "software"
? send 0xF001 as "markup"
? send 0xF002 as "attribute"
? send 0xF003 as "long"
? send 0xF004 as "bytes"
? send 0xF005 as "marks"
phase battery
battery-voltage in 3600000..4400000 uV as "cell voltage"
battery-capacity in 30..100 % as "charge"
phase people
lcd-picture red
input LABEL "Scan the label" =~ ^CV[0-9A-F]{8}$
ask "Is the panel red?"
tell "Put the phone into its box"
phase always
quit-picture --timeout 3
'''
# In the past nothing has passed, so that what passes now has not passed at first.
ANSWERS = 'Scan the label = CV00000000\nIs the panel red? = no\nPut the phone into its box = done\n'


def run(*words, check=True):
    done = subprocess.run(
        words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120, check=False
    )
    if check and done.returncode != 0:
        raise AssertionError(f'{words}: status {done.returncode}: {done.stdout.decode(errors="replace")}')
    return done.stdout.decode(errors='replace')


class Stage:
    """Phones, records with a past, and the program that serves the page."""

    def __init__(self):
        # Sockets have short names.
        self.folder = tempfile.mkdtemp(prefix='page', dir='/tmp')
        self.records = f'{self.folder}/records.db'
        self.phones = [f'{NAME}.{number}' for number in (1, 2)]
        self.server = None
        self.log = open(f'{self.folder}/log', 'w+b')  # pylint: disable=consider-using-with
        for name, text in (('plan.station', PLAN), ('answers', ANSWERS)):
            with open(f'{self.folder}/{name}', 'w', encoding='utf-8') as file:
                file.write(text)
        self.hostile = f'{self.folder}/hostile'
        hostile_phone.start(self.hostile)

    def port(self, phone):
        return f'{TOP}/build/phone/{phone}/port'

    def boot(self):
        faults = [[], ['--set', '/sys/class/power_supply/battery/voltage_now=4512000']]
        booting = [
            subprocess.Popen(
                [f'{TOP}/script/phone', 'up', phone, '--build', BUILD, '--fresh', '--serial', serial, *fault],
                stdout=subprocess.DEVNULL,
            )
            for phone, serial, fault in zip(self.phones, SERIALS, faults)
        ]
        for one in booting:
            assert one.wait(120) == 0, 'a phone does not come up'

    def play(self, port):
        run(
            STATION,
            '--port',
            port,
            'run',
            f'{self.folder}/plan.station',
            '--records',
            self.records,
            '--answers',
            f'{self.folder}/answers',
            check=False,
        )

    def spoil(self):
        """What another station may have written into a database: marks and control characters as they are."""
        with sqlite3.connect(self.records) as records:
            its_first = "(SELECT min(id) FROM runs WHERE port = ?)"
            found = records.execute(
                f"UPDATE steps SET cause = ? WHERE name = 'cell voltage' AND run = {its_first}",
                (hostile_phone.MARKS + '\x1b\x07', self.hostile),
            )
            assert found.rowcount == 1, 'no step to be spoilt'

    def many(self, count):
        """So many phones more, as a line's arguments; each asks one question."""
        with open(f'{self.folder}/short.station', 'w', encoding='utf-8') as file:
            file.write('unit usb-serial\nask "Is the panel red?"\n')
        ports = [f'{self.folder}/many{number}' for number in range(count)]
        for port in ports:
            hostile_phone.start(port)
        return [word for port in ports for word in ('--port', port)]

    def serve(self, *words, page='127.0.0.1:0'):
        """Starts a station that serves the page, and returns the page's address."""
        begin = self.log.seek(0, os.SEEK_END)
        self.server = subprocess.Popen(
            [STATION, *words, '--records', self.records, '--page', page],
            stdin=subprocess.DEVNULL,
            stdout=self.log,
            stderr=self.log,
        )
        end = time.monotonic() + 30
        while time.monotonic() < end and self.server.poll() is None:
            with open(f'{self.folder}/log', 'rb') as log:
                log.seek(begin)
                found = re.search(rb'http://127\.0\.0\.1:\d+/', log.read())
            if found:
                return found[0].decode()
            time.sleep(0.05)
        raise AssertionError('no page: ' + self.said())

    def said(self):
        with open(f'{self.folder}/log', 'rb') as log:
            return log.read().decode(errors='replace')[-3000:]

    def stop(self):
        if self.server and self.server.poll() is None:
            self.server.send_signal(signal.SIGINT)
            try:
                self.server.wait(20)
            except subprocess.TimeoutExpired:
                self.server.kill()
                self.server.wait()
        self.server = None

    def leave(self):
        self.stop()
        for phone in self.phones:
            run(f'{TOP}/script/phone', 'down', phone, check=False)
            shutil.rmtree(f'{TOP}/build/phone/{phone}', ignore_errors=True)
        shutil.rmtree(self.folder, ignore_errors=True)
