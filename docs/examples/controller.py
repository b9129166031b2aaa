#!/usr/bin/python3
"""A controller: keeps the flow table of a card as it wants it, and proves it.

It programs flows, and then changes some of them in every round. Failures of single flows, broken connections and restarts
of the agent only cost it time: what it is not sure of is sent again, and a restart makes it send everything. At the end
it reads every flow back and compares the table's own count, so that nothing is missing, different or left over.
"""

import argparse
import ipaddress
import sys
import time

import nyx

FIRST_ADDRESS = int(ipaddress.IPv6Address("2001:db8::"))


def key(number):
    return {"k1": ipaddress.IPv6Address(FIRST_ADDRESS + number), "k2": 6, "k3": 443}


def flow(number, next_hop):
    return {"key": key(number), "flow_hash_data": {"d1": next_hop}}


class Controller:
    """`wanted` maps the numbers of flows to next hops; `doubtful` are flows that may differ from it in the card."""

    def __init__(self, address, flows):
        self.used = flows  # numbers below it were wanted at some time
        self.wanted = {number: 0 for number in range(flows)}
        self.doubtful = set(self.wanted)
        self.troubles = 0
        self.agent = nyx.connect(address, on_restart=self.resync)
        self.table = self.agent.table("flow")

    def resync(self, agent):
        """The tables are empty after a restart of the agent."""
        self.doubtful.update(self.wanted)

    def change(self, round_number):
        """A tenth of the flows goes, as many others come, and one in ten gets another next hop."""
        tenth = max(len(self.wanted) // 10, 1)
        for number in list(self.wanted)[:tenth]:
            self.set(number, None)
        for number in list(self.wanted)[:tenth]:
            self.set(number, round_number)
        for number in range(self.used, self.used + tenth):
            self.set(number, round_number)
        self.used += tenth

    def set(self, number, next_hop):
        self.doubtful.add(number)
        if next_hop is None:
            del self.wanted[number]
        else:
            self.wanted[number] = next_hop

    def reconcile(self):
        """Brings the card to what is wanted, however often it takes."""
        while self.doubtful:
            batch, self.doubtful = self.doubtful, set()
            try:
                self.table.delete(key(number) for number in batch if number not in self.wanted)
                self.table.apply(flow(number, self.wanted[number]) for number in batch if number in self.wanted)
            except nyx.Error as error:
                self.doubtful |= batch
                self.report(error)

    def report(self, error):
        self.troubles += 1
        print(f"trouble: {error}", flush=True)
        time.sleep(0.05)

    def holds_exactly(self):
        """Whether the card holds what is wanted, and nothing else."""
        try:
            found = self.table.get(key(number) for number in self.wanted)
            right = all(entry and entry["flow_hash_data"]["d1"] == next_hop
                        for entry, next_hop in zip(found, self.wanted.values(), strict=True))
            return right and self.occupied() == len(self.wanted)
        except nyx.Error as error:
            self.report(error)
            return False

    def occupied(self):
        """How many entries the card counts in the table."""
        for table in self.agent.call("DebugSvc/TableStatsGet").response:
            if table.table_name == self.table.name:
                return next((figure.count for figure in table.table_stats.entry if figure.type == 0), 0)
        return None

    def run(self, rounds):
        self.reconcile()
        for number in range(1, rounds + 1):
            self.change(number)
            self.reconcile()
            print(f"round {number}: {len(self.wanted)} flows", flush=True)
        while not self.holds_exactly():
            print("not yet as wanted: checking every flow that ever was", flush=True)
            self.doubtful.update(range(self.used))
            self.reconcile()


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--address", help="of the agent; default: NYX_GRPC, else the agent's own default")
    parser.add_argument("--flows", type=int, default=100_000)
    parser.add_argument("--rounds", type=int, default=5)
    options = parser.parse_args()
    try:
        controller = Controller(options.address, options.flows)
    except nyx.Error as error:
        sys.exit(f"controller: {error}")
    controller.run(options.rounds)
    print(f"the card holds exactly its {len(controller.wanted)} flows, after {controller.troubles} troubles and "
          f"{controller.agent.restarts} restarts")


if __name__ == "__main__":
    main()
