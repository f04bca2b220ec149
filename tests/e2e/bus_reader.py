"""bus_reader.py PORT BUS FILE: what python-can reads of a bus at that port, a line a message, until its standard
input has ended and no more comes. Says "ready" before."""

import logging
import select
import sys

import can

logging.disable()  # it warns of each CAN FD message, which it leaves out
port, channel, path = sys.argv[1:]
bus = can.Bus(interface="socketcand", host="127.0.0.1", port=int(port), channel=channel)
print("ready", flush=True)
with open(path, "w") as file:
    while True:
        message = bus.recv(0.2)
        if message:
            file.write(f"{round(message.timestamp * 1e6)} {message.arbitration_id:X} {message.data.hex()}\n")
        elif select.select([sys.stdin], [], [], 0)[0]:
            break
bus.shutdown()
