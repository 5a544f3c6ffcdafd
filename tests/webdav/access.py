"""Who may come in when the server listens on more than the loopback and asks for a password."""
import base64
import concurrent.futures
import subprocess
import time

from dav import expect, run, status


def basic(text):
    return 'Basic ' + base64.b64encode(text.encode()).decode()


RIGHT = basic('ann:quiet river 7')


def hosts(dav):
    for wanted, names in ((200, ('files.example', 'FILES.example:8080', '192.168.1.2:80', '[fe80::1]:80', 'localhost')),
                          (403, ('evil.example', 'files.example.evil.example', ''))):
        for host in names:
            status(dav('GET', '/', Host=host, Authorization=RIGHT), wanted)


def only_with_the_password(dav):
    answer = status(dav('GET', '/'), 401)
    expect(answer.headers['WWW-Authenticate'].startswith('Basic realm='), 'no challenge')
    for method in ('OPTIONS', 'PROPFIND', 'PUT', 'DELETE', 'LOCK'):
        status(dav(method, '/Docs/a.txt', Depth='0'), 401)
    wrong = map(basic, ('ann:quiet river 8', 'ann:quiet river 7 ', 'ann', ':', 'bob:quiet river 7', ''))
    for field in (*wrong, 'Basic %%%', RIGHT.replace('Basic', 'Bearer')):
        status(dav('GET', '/', Authorization=field), 401)
    status(dav('PUT', '/Docs/a.txt', b'x', Authorization=RIGHT), 201)


def guessing_is_slow_and_locks_nobody_out(dav):
    """After a few guesses new connections come in at a pace, those with the right password too; each of these is answered."""
    for number in range(6):
        status(dav('GET', '/', Authorization=basic(f'ann:{number}')), 401)
    start = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(30) as pool:
        answers = pool.map(lambda _: dav('GET', '/', Authorization=basic('ann:guess')).status, range(30))
        for _ in range(10):
            status(dav('GET', '/', Authorization=RIGHT), 200)
    expect(set(answers) == {401}, 'a guess was not refused')
    expect(time.monotonic() - start >= 3.5, 'the guesses were answered quickly')


def the_password_is_nowhere(dav):
    for name in ('server.log', 'server.out'):
        expect('quiet' not in dav.native('/' + name).read_text(), f'the password is in {name}')
    expect(b'quiet river' not in subprocess.check_output(['ps', '-eo', 'args']), 'the password is on a command line')


if __name__ == '__main__':
    run()
