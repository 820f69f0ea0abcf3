#!/usr/bin/env python3
"""Asks an agent for its instances and their databases, as a page does, and prints how long that took.

usage: ask.py URL KEY-FILE HOST-UUID
"""
import concurrent.futures
import http.client
import json
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


def main():
    agent = Agent(*sys.argv[1:4])
    for at_once in [1] + [AT_ONCE] * ROUNDS:
        begin = time.monotonic()
        instances = agent.call("hana.instance.list")
        listed = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
            databases = sum(len(rows) for rows in pool.map(agent.databases, instances))
        end = time.monotonic()
        print(f"{len(instances)} instances in {listed - begin:.3f} s; their {databases} databases, {at_once} at a time, "
              f"in {end - listed:.3f} s")


if __name__ == "__main__":
    main()
