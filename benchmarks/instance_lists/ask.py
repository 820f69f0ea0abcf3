#!/usr/bin/env python3
"""Asks an agent for its instances and their databases, as a page does, and prints how long that took.

usage: ask.py URL KEY-FILE HOST-UUID AGENT-PID BACKUPD-PID

The processor time tells on a busy machine too what the lists cost.
"""
import concurrent.futures
import http.client
import json
import os
import sys
import time

ROUNDS = 3
AT_ONCE = 8


class Agent:
    """One agent behind its backup server."""

    def __init__(self, url, key_file, host_uuid):
        self.address = url.split("//")[1]
        with open(key_file, encoding="ascii") as file:
            self.key = file.read().strip()
        self.path = f"/q5/r/v2/agents/{host_uuid}/call"

    def call(self, method, params=None):
        body = {"method": method} if params is None else {"method": method, "params": params}
        connection = http.client.HTTPConnection(self.address)
        connection.request("POST", self.path, json.dumps(body),
                           {"Authorization": "Bearer " + self.key, "Content-Type": "application/json"})
        response = connection.getresponse()
        text = response.read()
        if response.status != 200:
            sys.exit(f"{method}: {response.status} {text.decode()}")
        return json.loads(text)

    def databases(self, instance):
        name = f"{instance['sid']}_{instance['instance_name']}"
        return self.call("hana.database.list", {"uid": "", "instance": name})["databases"]


def processor_seconds(pid):
    """What a process and the children it has waited for have used."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        ticks = [int(field) for field in file.read().rpartition(")")[2].split()[11:15]]
    return (sum(ticks[:2]) / os.sysconf("SC_CLK_TCK"), sum(ticks[2:]) / os.sysconf("SC_CLK_TCK"))


def main():
    agent = Agent(*sys.argv[1:4])
    agent_pid, backupd_pid = sys.argv[4:6]
    for at_once in [1] + [AT_ONCE] * ROUNDS:
        used = processor_seconds(agent_pid) + processor_seconds(backupd_pid)
        begin = time.monotonic()
        instances = agent.call("hana.instance.list")
        listed = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
            databases = sum(len(rows) for rows in pool.map(agent.databases, instances))
        end = time.monotonic()
        print(f"{len(instances)} instances in {listed - begin:.3f} s; their {databases} databases, {at_once} at a time, "
              f"in {end - listed:.3f} s")
        now = processor_seconds(agent_pid) + processor_seconds(backupd_pid)
        own, programs, server, _ = (after - before for after, before in zip(now, used))
        print(f"  processor time: agent {own:.2f} s, its runs of hdbsql {programs:.2f} s, backupd {server:.2f} s")


if __name__ == "__main__":
    main()
