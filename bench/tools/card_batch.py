#!/usr/bin/env python3
"""Prints the batch file of a large card: 16 bridges of 64 ports, 512 VLANs on each, 8 VLAN entries on each port.

Usage: card_batch.py [--bridges N] [--ports N] [--vlans N] [--entries N]
"""
import argparse


def bridge(name, size):
    yield f"bridge add {name} {size.ports + 1}"
    yield f'bridge shelf-id set {name} "{name}/1"'
    yield f"bridge sysname set {name} AN-{name}"
    yield f"bridge location set {name} 'Main Street 5, rack {name}'"
    yield f"bridge contact set {name} noc@example.net"
    yield f"bridge vlan set-all {name} on"
    yield f'format circuit-id set {name} "$SYSNAME eth $CHASSIS/$z2PORT:$VLAN"'
    yield f'format remote-id set {name} "$PORT_REM_ID"'
    for vlan in range(1, size.vlans + 1):
        yield f"vlan add {name} {vlan}"
        yield f"vlan name set {name} {vlan} vlan-{vlan}"
    for number in range(1, size.ports + 1):
        yield from port(name, number, size)


def port(name, number, size):
    line = f"{name} {number}"
    yield f"port add {line} line{number} 0/{number} --type gem --location panel=P{number % 8},onu={number},gem={3000 + number}"
    yield f"port state set {line} subscriber"
    yield f"port trust set {line} untrusted"
    yield f"port remote-id set {line} C-{name}-{number:04}"
    yield f"port description set {line} 'House {number}'"
    yield f"port cpe-serial set {line} SN{number:08}"
    yield f"port cpe-mac set {line} 02:00:00:00:00:{number:02x}"
    yield f"port circuit-id-mode set {line} custom"
    for entry in range(1, size.entries + 1):
        vlan = f"{line} {10 * entry}"
        yield f"port-vlan circuit-id-mode set {vlan} custom"
        yield f'port-vlan circuit-id-format set {vlan} "$SYSNAME {entry} $PORT:$VLAN"'
        yield f'port-vlan remote-id-format set {vlan} "$PORT_REM_ID-{entry}"'


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option, value in (("bridges", 16), ("ports", 64), ("vlans", 512), ("entries", 8)):
        parser.add_argument("--" + option, type=int, default=value)
    size = parser.parse_args()
    print("init")
    for number in range(size.bridges):
        print("\n".join(bridge(f"br{number}", size)))


main()
