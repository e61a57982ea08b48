#!/usr/bin/python3
"""A real SMTP server for the tests, on aiosmtpd.

Each message it accepts is stored as <maildir>/<n>.eml, with the envelope in <n>.env. It can demand
STARTTLS and AUTH, or accept connections and never answer.
It prints "READY <port>" once it listens.
"""
import argparse
import socket
import ssl
import threading

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, LoginPassword


class Store:
    def __init__(self, maildir):
        self.maildir = maildir
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        base = "%s/%d" % (self.maildir, self.count)
        with open(base + ".eml", "wb") as message:
            message.write(envelope.original_content)
        with open(base + ".env", "w") as env:
            login = session.auth_data.login.decode() if isinstance(session.auth_data, LoginPassword) else None
            env.write("from %s\nto %s\nauth %s\ntls %s\n" % (
                envelope.mail_from, " ".join(envelope.rcpt_tos), login, "yes" if session.ssl else "no"))
        return "250 Message accepted for delivery"


def authenticator(user, password):
    def check(server, session, envelope, mechanism, auth_data):
        if isinstance(auth_data, LoginPassword) and auth_data.login.decode() == user \
                and auth_data.password.decode() == password:
            return AuthResult(success=True, auth_data=auth_data)
        return AuthResult(success=False, handled=False)
    return check


def silent():
    """Accepts connections and never says a word."""
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(5)
    print("READY %d" % listener.getsockname()[1], flush=True)
    held = []
    while True:
        connection, _ = listener.accept()
        held.append(connection)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--maildir", default=".")
    parser.add_argument("--cert")
    parser.add_argument("--key")
    parser.add_argument("--user")
    parser.add_argument("--password")
    parser.add_argument("--silent", action="store_true")
    args = parser.parse_args()
    if args.silent:
        silent()
        return

    probe = socket.socket()
    probe.bind(("127.0.0.1", 0))
    port = probe.getsockname()[1]
    probe.close()
    context = None
    if args.cert:
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(args.cert, args.key)
    options = {}
    if args.user:
        # AUTH is demanded, so a message that arrives proves the client logged in.
        options.update(authenticator=authenticator(args.user, args.password), auth_required=True,
                       auth_require_tls=bool(args.cert))
    controller = Controller(Store(args.maildir), hostname="127.0.0.1", port=port,
                            tls_context=context, require_starttls=bool(context), server_kwargs=options)
    controller.start()
    print("READY %d" % port, flush=True)
    threading.Event().wait()


if __name__ == "__main__":
    main()
