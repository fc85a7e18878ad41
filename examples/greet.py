#!/usr/bin/env python3
"""Asks an agent to greet somebody, and reads the greetings that it has stored: greet.py SOCKET NAME"""
import http.client
import json
import socket
import sys


class AgentConnection(http.client.HTTPConnection):
    """HTTP over the agent's control socket."""

    def __init__(self, path):
        super().__init__("agent")
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.connect(self.path)

    def call(self, action, values):
        """The action's status and its answer."""
        self.request("POST", "/actions/" + action, json.dumps({"Values": values}))
        answer = json.load(self.getresponse())
        return answer["status"], answer["container"].get("Result", {})


agent = AgentConnection(sys.argv[1])
status, result = agent.call("GreetingSay", {"Name": sys.argv[2]})
if status != 0:
    sys.exit(f"the greeting was answered with status {status}")
print(result["Text"])
status, events = agent.call("EventLogManagerGetEvents", {"ModelName": "Greeting"})
for name, length in zip(events.get("Name", []), events.get("Length", [])):
    print(f"stored: {name}, {length} bytes")
