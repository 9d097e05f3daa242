#!/usr/bin/python3
"""A Modbus device simulator for trying the gateway without a plant.

Serves Modbus TCP or Modbus RTU on a serial device (a socat pty pair will do)
for one or more unit ids, with registers set from the command line, an
optional animated demo map, and a count of the requests it answers.

  modbus-sim.py --tcp 1502 --demo
  modbus-sim.py --serial /tmp/ttyV1 --units 1,2 --set 1:hr:10=f32:CDAB:1.5
  modbus-sim.py --tcp 1502 --units 1,2 --silent-others   # unit 3 and on never answer

--set UNIT:TABLE:ADDR=TYPE[:ORDER]:VALUE puts a value at ADDR (counted from 1,
as the configurator counts) of TABLE co, di, ir or hr. TYPE is u16, i16, u32,
i32, f32, f64 or bit; ORDER names the bytes on the wire, most significant
first being A (AB, BA, ABCD, CDAB, BADC, DCBA, ABCDEFGH, GHEFCDAB, ...).

--clock UNIT:ADDR keeps the wall clock (milliseconds of the epoch, low 32 bits,
as u32 ABCD) at an input register, changed at uneven intervals, for latency
measurements.

It prints "ready" once it serves, "requests N" (requests answered so far,
reads and writes) when that changes, and "write UNIT TABLE ADDR v1 v2 ..." for
every write.
"""
import argparse
import asyncio
import logging
import math
import random
import struct
import sys
import time

from pymodbus.datastore import (ModbusSequentialDataBlock, ModbusServerContext,
                                ModbusSlaveContext)
from pymodbus.framer.rtu_framer import ModbusRtuFramer
from pymodbus.server.async_io import ModbusSerialServer, ModbusTcpServer
from pymodbus.transaction import ModbusSocketFramer

FORMATS = {"u16": ">H", "i16": ">h", "u32": ">I", "i32": ">i", "f32": ">f", "f64": ">d"}
TABLES = {"di": "d", "co": "c", "ir": "i", "hr": "h"}
FUNCTION_TABLES = {1: "co", 2: "di", 3: "hr", 4: "ir", 5: "co", 6: "hr", 15: "co", 16: "hr"}
requests = 0


def out(line):
    print(line, flush=True)


class Device(ModbusSlaveContext):
    """Counts requests and reports writes; addresses as the configurator counts."""

    def __init__(self, unit, size):
        blocks = {t: ModbusSequentialDataBlock(1, [0] * size) for t in TABLES}
        super().__init__(**blocks)
        self.unit = unit

    def getValues(self, fc_as_hex, address, count=1):
        global requests
        if fc_as_hex in (1, 2, 3, 4):  # reads; a write is counted where it is stored
            requests += 1
        return super().getValues(fc_as_hex, address, count)

    def setValues(self, fc_as_hex, address, values):
        global requests
        requests += 1
        super().setValues(fc_as_hex, address, values)
        words = " ".join(str(int(v)) for v in values)
        out(f"write {self.unit} {FUNCTION_TABLES.get(fc_as_hex, '?')} {address + 1} {words}")

    def put(self, table, address, words):
        self.store[TABLES[table]].setValues(address, words)


def encode(kind, order, value):
    if kind == "bit":
        return [1 if float(value) else 0]
    data = struct.pack(FORMATS[kind], float(value) if kind[0] == "f" else int(value))
    order = order or "ABCDEFGH"[:len(data)]
    wire = bytes(data[ord(c) - ord("A")] for c in order)
    return [wire[i] << 8 | wire[i + 1] for i in range(0, len(wire), 2)]


def apply_set(devices, assignment):
    where, what = assignment.split("=", 1)
    unit, table, address = where.split(":")
    parts = what.split(":")
    kind, value = parts[0], parts[-1]
    order = parts[1] if len(parts) == 3 else ""
    devices[int(unit)].put(table, int(address), encode(kind, order, value))


async def animate(devices):
    """The demo map of examples/modbus-demo.cfg, changing every 100 ms."""
    start = time.monotonic()
    while True:
        t = time.monotonic() - start
        for d in devices.values():
            d.put("ir", 1, encode("f32", "ABCD", 70 + 10 * math.sin(t / 5)))
            d.put("ir", 3, encode("f32", "CDAB", 4 + math.sin(t / 3)))
            d.put("ir", 5, [int(t * 2) % 16])  # bit 0 flips every 0.5 s, bit 3 every 4 s
            d.put("hr", 1, encode("u32", "ABCD", int(t * 10)))
            d.put("di", 1, [int(t / 5) % 2])
        await asyncio.sleep(0.1)


async def clock(device, address):
    while True:
        device.put("ir", address, encode("u32", "ABCD", int(time.time() * 1000) & 0xFFFFFFFF))
        await asyncio.sleep(random.uniform(0.02, 0.08))


async def report():
    shown = -1
    while True:
        if requests != shown:
            shown = requests
            out(f"requests {requests}")
        await asyncio.sleep(0.2)


async def garbage(port):
    """Answers every request with bytes that are no Modbus answer."""
    async def handle(reader, writer):
        while await reader.read(260):
            writer.write(b"\x00\x00\x00\x00\x00\x05\xff\x83\x99\x42\x17")
            await writer.drain()
    server = await asyncio.start_server(handle, "127.0.0.1", port)
    out("ready")
    await server.serve_forever()


async def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--tcp", type=int, metavar="PORT")
    where.add_argument("--serial", metavar="DEVICE")
    parser.add_argument("--baud", type=int, default=9600)
    parser.add_argument("--units", default="1", help="unit ids, comma separated")
    parser.add_argument("--size", type=int, default=2000, help="addresses per table")
    parser.add_argument("--set", action="append", default=[], metavar="WHERE=VALUE")
    parser.add_argument("--demo", action="store_true", help="animate the demo map")
    parser.add_argument("--clock", metavar="UNIT:ADDR", help="keep the wall clock at an input register")
    parser.add_argument("--garbage", action="store_true", help="answer garbage (TCP)")
    parser.add_argument("--silent-others", action="store_true",
                        help="give no answer to other unit ids, as a dead unit on a line does")
    args = parser.parse_args()
    logging.basicConfig(level=logging.CRITICAL)
    logging.getLogger("pymodbus").setLevel(logging.CRITICAL)

    if args.garbage:
        await garbage(args.tcp)
        return
    devices = {int(u): Device(int(u), args.size) for u in args.units.split(",")}
    for assignment in args.set:
        apply_set(devices, assignment)
    context = ModbusServerContext(slaves=devices, single=False)
    if args.tcp:
        server = ModbusTcpServer(context, ModbusSocketFramer, address=("127.0.0.1", args.tcp),
                                 ignore_missing_slaves=args.silent_others)
    else:
        server = ModbusSerialServer(context, ModbusRtuFramer, port=args.serial, baudrate=args.baud,
                                    ignore_missing_slaves=args.silent_others)
        await server.start()
    tasks = [asyncio.create_task(report())]
    if args.demo:
        tasks.append(asyncio.create_task(animate(devices)))
    if args.clock:
        unit, address = (int(x) for x in args.clock.split(":"))
        tasks.append(asyncio.create_task(clock(devices[unit], address)))
    serving = asyncio.create_task(server.serve_forever())
    await asyncio.sleep(0.2)
    out("ready")
    await serving


if __name__ == "__main__":
    try:
        asyncio.run(main())
    except KeyboardInterrupt:
        sys.exit(0)
