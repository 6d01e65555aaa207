"""The recording fake below the module, and what every operation of the model reports through."""

from zlib import crc32

from records import ranges, word

ERR, WARNING, INFO, DEBUG = 4, 5, 7, 8
EBUSY, EINVAL = 16, 22

STATUS_OPERATIONS = (
    "vask_p4_mep_add_meter_profile", "vask_p4_mep_del_meter_profile", "vask_p4_mep_add_meter_policy",
    "vask_p4_mep_del_meter_policy", "vask_p4_mep_read_meter_inst",
    "vask_p4_mep_update_meter_output_by_meterid", "vask_p4_mep_del_meter_output_by_meterid",
    "vask_p4_mep_update_meter_output_by_mtu", "qorn_meter_profile_update", "qorn_meter_profile_delete",
    "qorn_meter_table_update", "qorn_meter_table_delete", "qorn_input_port_tx_table_get",
    "qorn_input_port_tx_table_add", "vask_cmd_set_shaper", "vask_p4_isch_shaper_csr_write",
    "vask_p4_indexstack_create", "vask_p4_indexstack_alloc", "vask_p4_indexstack_free")
FAILING = STATUS_OPERATIONS + ("calloc", "vask_p4_get_global_cmd_channel", "vask_p4_priv_data_get")


class Pool:
    """One index pool: lowest free index first."""

    def __init__(self, number, capacity):
        self.number = number
        self.used = bytearray(capacity)
        self.dead = False
        self.cached = None
        self.low = 0

    def mark(self, index, value):
        self.used[index] = value
        self.cached = None

    def text(self):
        if self.cached is None:
            self.cached = f"{self.number}={ranges(self.used)}"
        return self.cached


class Card:
    """State, events and planned faults of one scenario; the lower layers' operations."""

    def __init__(self, scenario, numbers):
        self.numbers = numbers
        self.known_actions = (numbers["drop"], numbers["dscp4"])
        self.ports = {port: sfi for port, sfi in scenario.get("ports", [])}
        self.tx_default = scenario.get("tx") or "0" * 56
        self.tx = {}
        self.instances = ["0" * 64, "0" * 64]
        self.profiles, self.policies, self.meters = [], [], []
        self.pools = [None, None, None]  # meter, profile, policy: the module's three pointers
        self.managers = 0
        self.live = {"P": 0, "Q": 0, "M": 0}
        self.begin(())

    def begin(self, faults):
        """Starts a step."""
        self.ev = []
        self.lk = ""
        self.errno = None
        self.channels = 0
        self.faults = {(name, nth): code for name, nth, code in faults} if faults else None
        self.calls = {}

    def fault(self, name):
        """The planned code of this call, or None."""
        if self.faults is None:
            return None
        nth = self.calls[name] = self.calls.get(name, 0) + 1
        return self.faults.get((name, nth))

    # what the module's operations report

    def log(self, level, function, text):
        self.ev.append(f"L{level}{self.lk}|[offload_smartnic] {function} {text}\n")

    def dump_line(self, text):
        self.ev.append(f"L8{self.lk}|[offload_smartnic]*{text}\n")

    def fail(self, error, kind, message):
        """rte_mtr_error_set() with EBUSY and a null cause, negated."""
        if error is not None:
            error[:] = (kind, 0, message)
        self.errno = EBUSY
        return -EBUSY

    # a record's lock; only one is ever held

    def lock(self, kind):
        self.ev.append(f"lock({kind})")
        self.lk = "@" + kind

    def unlock(self):
        self.ev.append(f"unlock({self.lk[1:]})")
        self.lk = ""

    def init_lock(self, kind):
        self.ev.append(f"init({kind})")

    # the lower layers

    def call(self, name, arguments):
        """An operation that only answers a status."""
        code = self.fault(name) or 0
        self.ev.append(f"{name}({arguments})={code}{self.lk}")
        return code

    def calloc(self, kind):
        good = self.fault("calloc") is None
        self.ev.append(f"calloc({kind})={good:d}{self.lk}")
        self.live[kind] += good
        return good

    def free(self, kind):
        self.live[kind] -= 1

    def channel(self):
        number = 0
        self.channels += 1
        if self.fault("vask_p4_get_global_cmd_channel") is None:
            number = (self.channels - 1) % 16 + 1
        self.ev.append(f"vask_p4_get_global_cmd_channel()=c{number}{self.lk}")
        return f"c{number}"

    def priv_port(self, port):
        """The port's number, or None without private data."""
        sfi = self.ports.get(port)
        if self.fault("vask_p4_priv_data_get") is not None:
            sfi = None
        self.ev.append(f"vask_p4_priv_data_get({port})={'-' if sfi is None else sfi}{self.lk}")
        return sfi

    def pool_create(self, which, capacity):
        code = self.fault("vask_p4_indexstack_create") or 0
        if code:
            self.pools[which] = None
        else:
            self.managers += 1
            self.pools[which] = Pool(self.managers, capacity)
        number = 0 if code else self.managers
        self.ev.append(f"vask_p4_indexstack_create({capacity})={code}:{number}{self.lk}")
        return code

    def pool_number(self, which):
        return self.pools[which].number if self.pools[which] else 0

    def pool_alloc(self, which):
        """(status, index)."""
        pool, index = self.pools[which], None
        code = self.fault("vask_p4_indexstack_alloc") or 0
        if not code:
            if pool is None or pool.dead:
                code = -77
            else:
                index = pool.used.find(0)
                if index < 0:
                    code, index = -28, None
                else:
                    pool.mark(index, 1)
        shown = "-" if index is None else index
        self.ev.append(f"vask_p4_indexstack_alloc({self.pool_number(which)},1)={code}:{shown}{self.lk}")
        return code, index

    def pool_free(self, which, index):
        pool = self.pools[which]
        code = self.fault("vask_p4_indexstack_free") or 0
        if not code:
            if pool is None or pool.dead:
                code = -77
            elif index >= len(pool.used) or not pool.used[index]:
                code = -22
            else:
                pool.mark(index, 0)
        self.ev.append(f"vask_p4_indexstack_free({self.pool_number(which)},{index},1)={code}{self.lk}")
        return code

    def pool_set(self, which, index):
        pool = self.pools[which]
        self.ev.append(f"vask_p4_indexstack_set({self.pool_number(which)},{index},1)={self.lk}")
        if pool is not None and not pool.dead and index < len(pool.used):
            pool.mark(index, 1)

    def pool_destroy(self, which):
        self.ev.append(f"vask_p4_indexstack_destroy({self.pool_number(which)})={self.lk}")
        if self.pools[which] is not None:
            self.pools[which].dead = True

    def tx_get(self, channel, key):
        """(status, entry); a failed read leaves the zeroed record."""
        code = self.call("qorn_input_port_tx_table_get", f"{channel},{key},z")
        return code, "0" * 56 if code else self.tx.get(word(key) & 0x3FFF, self.tx_default)

    def tx_add(self, channel, key, entry):
        code = self.call("qorn_input_port_tx_table_add", f"{channel},{key},{entry}")
        if not code:
            self.tx[word(key) & 0x3FFF] = entry
        return code

    def read_instance(self, engine, index):
        code = self.call("vask_p4_mep_read_meter_inst", f"{engine},{index},z")
        return word("0" * 64 if code else self.instances[1 if engine else 0])

    # the state

    def text(self):
        live = self.live
        pools = ";".join([pool.text() if pool else "0=" for pool in self.pools])
        return (f"P:{';'.join([node.text() for node in self.profiles])}"
                f"|Q:{';'.join([node.text() for node in self.policies])}"
                f"|M:{';'.join([node.text() for node in self.meters])}"
                f"|I:{pools}|A:{live['P']},{live['Q']},{live['M']},0")

    def digest(self, text):
        return f"{crc32(text.encode()):08x}"
