"""Who may come in when the server listens on more than the loopback and asks for a password."""
import base64
import subprocess
import threading
import time

from dav import expect, run, status


def basic(text):
    return 'Basic ' + base64.b64encode(text.encode()).decode()


def only_with_the_password(dav):
    answer = status(dav('GET', '/'), 401)
    expect(answer.headers['WWW-Authenticate'].startswith('Basic realm='), 'no challenge')
    for method in ('OPTIONS', 'PROPFIND', 'PUT', 'DELETE', 'LOCK'):
        status(dav(method, '/Docs/a.txt', Depth='0'), 401)
    for wrong in ('ann:quiet river 8', 'ann:quiet river 7 ', 'ann', ':', 'bob:quiet river 7', ''):
        status(dav('GET', '/', Authorization=basic(wrong)), 401)
    status(dav('GET', '/', Authorization='Basic %%%'), 401)
    status(dav('GET', '/', Authorization='Bearer ' + basic('ann:quiet river 7')[6:]), 401)
    status(dav('PUT', '/Docs/a.txt', b'x', Authorization=basic('ann:quiet river 7')), 201)


def hosts(dav):
    right = basic('ann:quiet river 7')
    for host in ('files.example', 'FILES.example:8080', '192.168.1.2:80', '[fe80::1]:80', 'localhost'):
        status(dav('GET', '/', Host=host, Authorization=right), 200)
    for host in ('evil.example', 'files.example.evil.example', ''):
        status(dav('GET', '/', Host=host, Authorization=right), 403)


def guessing_is_slow_and_locks_nobody_out(dav):
    """After a few guesses new connections come in at a pace, those with the right password too; each of these is answered."""
    for number in range(6):
        status(dav('GET', '/', Authorization=basic(f'ann:{number}')), 401)
    answers, start = [], time.monotonic()
    guesses = [threading.Thread(target=lambda: answers.append(dav('GET', '/', Authorization=basic('ann:guess')).status)) for _ in range(30)]
    for guess in guesses:
        guess.start()
    for _ in range(10):
        status(dav('GET', '/', Authorization=basic('ann:quiet river 7')), 200)
    for guess in guesses:
        guess.join()
    expect(answers == [401] * 30, f'{answers}')
    expect(time.monotonic() - start >= 3.5, 'the guesses were answered quickly')


def the_password_is_nowhere(dav):
    for name in ('server.log', 'server.out'):
        with open(f'{dav.folder}/{name}') as file:
            expect('quiet' not in file.read(), f'the password is in {name}')
    lines = subprocess.run(['ps', '-eo', 'args'], capture_output=True, text=True, check=True).stdout
    expect('quiet river' not in lines, 'the password is on a command line')


if __name__ == '__main__':
    run((hosts, only_with_the_password, guessing_is_slow_and_locks_nobody_out, the_password_is_nowhere))
