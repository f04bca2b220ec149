"""NATS brokers in network namespaces of their own, on a bridge with stations; and links that can be cut."""

import json
import urllib.request

import lab

NETWORK = "10.9.0."
HERE = f"{NETWORK}1"


def prepare():
    """A bridge; who is in this namespace has the address HERE."""
    lab.prepare(links=0)
    lab.ip("link add fleet type bridge")
    lab.ip(f"address add {HERE}/24 dev fleet")
    lab.ip("link set fleet up")


def add_host(name, address):
    """A namespace with an interface "eth0" on the bridge."""
    lab.ip(f"netns add {name}")
    lab.ip(f"link add to-{name} type veth peer name eth0 netns {name}")
    lab.ip(f"link set to-{name} master fleet")
    lab.ip(f"link set to-{name} up")
    lab.ip(f"-n {name} address add {NETWORK}{address}/24 dev eth0")
    for interface in ("lo", "eth0"):
        lab.ip(f"-n {name} link set {interface} up")


def within(name):
    return ["nsenter", f"--net=/run/netns/{name}"]


def cut(name):
    lab.ip(f"link set to-{name} down")


def mend(name):
    lab.ip(f"link set to-{name} up")


class Cluster:
    """Brokers that know one another, each with a folder and a namespace."""

    def __init__(self, folder, count):
        self.folder, self.count = folder, count
        self.names = [f"broker{i}" for i in range(count)]
        self.processes = {}
        for i, name in enumerate(self.names):
            add_host(name, 11 + i)
        for name in self.names:
            self.start(name)

    def address(self, name):
        return f"{NETWORK}{11 + self.names.index(name)}"

    def url(self):
        return "nats://" + ",".join(self.address(name) for name in self.names)

    def start(self, name):
        routes = ",".join(f"nats://{self.address(other)}:6222" for other in self.names if other != name)
        mine = self.address(name)
        options = ["--cluster_name", "fleet", "--cluster", f"nats://{mine}:6222", "--routes", routes] * (self.count > 1)
        self.processes[name] = lab.spawn([
            *within(name), "nats-server", "-n", name, "-a", mine, "-p", "4222", "-m", "8222", "-js", "-sd",
            str(self.folder / name), "-l", str(self.folder / f"{name}.log"), *options])

    def kill(self, name):
        lab.end(self.processes.pop(name))

    def is_ready(self):
        """Whether all brokers are there and agree on everything."""
        return all(self.is_well(name) for name in self.names)

    def is_well(self, name):
        try:
            with urllib.request.urlopen(f"http://{self.address(name)}:8222/healthz", timeout=2) as page:
                return json.load(page).get("status") == "ok"
        except OSError:
            return False
