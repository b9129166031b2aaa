#!/usr/bin/python3
"""A monitor: reports links that go down, come up, or flapped between two looks.

The agent keeps the last transitions of each port's link state machine. So a link that went down and came up again since
the last look is noticed, too: the trace has grown.
"""

import argparse
import sys
import time

import nyx
from nyx import port_pb2

UP = port_pb2.PORT_LINK_STATE_2  # as the stand-in's card numbers it; another card may differ


class Link:
    """What was last seen of a port's link."""

    def __init__(self, port):
        self.is_up = port.status.link_status.link_state == UP
        self.trace = [(record.timestamp, record.state) for record in port.status.link_sm_records]

    def news_since(self, before):
        """What happened between two looks, as text; None if nothing did."""
        new = self.trace[self.trace.index(before.trace[-1]) + 1:] if before.trace and before.trace[-1] in self.trace \
            else self.trace
        when = new[-1][0] if new else "now"
        if self.is_up != before.is_up:
            return f"{'up' if self.is_up else 'down'} since {when}"
        if new and self.is_up:
            return f"flapped until {when}: {len(new)} transitions"
        return None


def look(agent):
    """The links of all ports, by port number. Ports before one that can't be read are there."""
    try:
        ports = agent.call("PortSvc/PortGet").response
    except nyx.ApiError as error:
        print(error, file=sys.stderr)
        ports = error.response.response
    return {port.spec.port_number: Link(port) for port in ports}


def monitor(agent, interval, reports):
    """Prints until it has reported so many times; for ever if that is 0."""
    links, restarts = look(agent), agent.restarts
    while True:
        time.sleep(interval)
        try:
            now = look(agent)
        except nyx.Unreachable as error:
            print(f"agent: {error}", file=sys.stderr, flush=True)
            continue
        if agent.restarts != restarts:
            print("agent: restarted", flush=True)
            links, restarts = now, agent.restarts
        for number, link in now.items():
            news = link.news_since(links.get(number, link))
            if news:
                print(f"port {number}: {news}", flush=True)
                reports -= 1
                if reports == 0:
                    return
        links |= now


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--address", help="of the agent; default: NYX_GRPC, else the agent's own default")
    parser.add_argument("--interval", type=float, default=1, metavar="SECONDS", help="between two looks (default 1)")
    parser.add_argument("--reports", type=int, default=0, metavar="N", help="end after so many")
    options = parser.parse_args()
    try:
        monitor(nyx.connect(options.address), options.interval, options.reports)
    except nyx.Error as error:
        sys.exit(f"monitor: {error}")
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    main()
