#!/usr/bin/python3
"""A partner of a QUIL host: greets it, answers "MENU" and "PING", prints what it gets. Needs python3-dbus, python3-gi."""
import sys
import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

HOST = sys.argv[1] if len(sys.argv) > 1 else "FMP7"
SIGN = sys.argv[2] if len(sys.argv) > 2 else "GLN1"


class Partner(dbus.service.Object):
    @dbus.service.method("org.quil.Partner1", in_signature="ssa(say)")
    def Event(self, event_class, event_id, parameters):
        values = {str(key): bytes(value) for key, value in parameters}
        encoding = {b"utf-8": "utf-8", b"Windows-1252": "cp1252"}.get(values.get("NCOD"), "mac_roman")
        message = {key: value.decode(encoding, "replace") for key, value in values.items()}
        print(message, flush=True)
        if message["MSSG"] == "HOLA":
            send(message["SIGN"], {"MSSG": "OKHI", "NAME": "Python"})
        elif message["MSSG"] == "PING":
            send(message["SIGN"], {"MSSG": "PONG", "TEXT": message.get("TEXT", "")})
        elif message["MSSG"] == "BYE ":
            loop.quit()

    @dbus.service.method("org.freedesktop.Application", in_signature="a{sv}")
    def Activate(self, platform_data):
        print("to the front", flush=True)


def send(receiver, message):
    values = {"SIGN": SIGN, "PSIG": SIGN, "XTRA": "", "NCOD": "utf-8", **message}
    keys = sorted(values, key=lambda key: key != "MSSG")
    parameters = dbus.Array([(key, dbus.ByteArray(values[key].encode())) for key in keys], signature="(say)")
    call = dbus.lowlevel.MethodCallMessage(
        "org.quil.Partner." + receiver, "/org/quil/Partner/" + receiver, "org.quil.Partner1", "Event")
    call.append("QUIL", "AEVT", parameters, signature="ssa(say)")
    call.set_no_reply(True)
    bus.send_message(call)


bus = dbus.SessionBus(mainloop=dbus.mainloop.glib.DBusGMainLoop())
name = dbus.service.BusName("org.quil.Partner." + SIGN, bus)
partner = Partner(bus, "/org/quil/Partner/" + SIGN)
if bus.name_has_owner("org.quil.Partner." + HOST):
    send(HOST, {"MSSG": "HOLA", "NAME": "Python"})
loop = GLib.MainLoop()
loop.run()
