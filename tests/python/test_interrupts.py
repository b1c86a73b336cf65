"""Signals that come while a call runs."""

PREPARATION = """
    import fcntl, os, signal, struct, threading, time
    import vela

    file = vela.open("runs.dmr", "x")
    lock = open("runs.dmr-lock", "r+b")

    def byte(number, command, kind=fcntl.F_WRLCK):
        asked = struct.pack("hhqqi4x", kind, os.SEEK_SET, number, 1, 0)
        return struct.unpack("hhqqi4x", fcntl.fcntl(lock, command, asked))[0]

    def free():
        byte(0, fcntl.F_OFD_SETLK, fcntl.F_UNLCK)

    def interrupt_the_call():
        while byte(2, fcntl.F_OFD_GETLK) == fcntl.F_UNLCK:  # the queue of writers
            time.sleep(0.01)
        os.kill(os.getpid(), signal.SIGINT)

    def interrupted(call):
        byte(0, fcntl.F_OFD_SETLK)
        threading.Thread(target=interrupt_the_call).start()
        try:
            print(call())
        except BaseException as failure:
            print(type(failure).__name__, failure)
        free()
"""


def test_what_a_handler_raises_stops_the_call_and_undoes_it(script):
    assert script(PREPARATION + """
    interrupted(lambda: file.runs.create("stopped"))

    def alarm(*_):
        raise TimeoutError("too long")

    signal.signal(signal.SIGINT, alarm)
    interrupted(lambda: file.runs.create("stopped"))
    print(list(file.runs), file.runs.create("kept").name)
    """) == "KeyboardInterrupt \nTimeoutError too long\n[] kept\n"


def test_a_handler_that_returns_lets_the_call_go_on(script):
    assert script(PREPARATION + """
    def handler(*_):
        try:
            file.runs.ids()
        except RuntimeError as failure:
            print(failure)
        free()

    signal.signal(signal.SIGINT, handler)
    interrupted(lambda: file.runs.create("kept").name)
    """) == "a signal handler cannot use repositories: it interrupts a call of one\nkept\n"
