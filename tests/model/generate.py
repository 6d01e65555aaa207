"""Random scenarios: few ids, boundary values, planned faults, every step of FORMAT.md."""

from random import Random


IDS = (0, 1, 1, 2, 2, 3, 3, 5, 255, 256, 0x80000000, 0xFFFFFFFF)
METERS = (0, 1, 1, 2, 2, 3, 9, 0x80000000, 0xFFFFFFFF)
RATES = (0, 1, 999, 1000, 7999, 8000, 8001, 11574, 11575, 12500, 1250000, 125000000, 1250000000,
         6068148148, 6068148149, 0x3FFFFFF, 0x4000000, 0x4000001, 0x2000001, 0xFFFFFFF, 0x10000000,
         8000 * 0x4000000 - 1, 8000 * 0x4000000, (1 << 32) - 1, 1 << 32, (1 << 40) - 1,
         ((1 << 64) - 1) // 108, (1 << 64) // 108 + 1, (1 << 61) - 1, 1 << 61, (1 << 64) - 1)
BURSTS = (0, 1, 3, 1000, 1023, 1024, 65536, 0xFFFFF, 0x100000, 0x1FFF, 0x2000, 0x7FFFF, 0x80000,
          1024 * 0xFFFFF + 1023, 1 << 30, (1 << 64) - 1)
MODES = (0, 0, 0, 1, 1, 2, 3, -1, 256, 0x10001)
CODES = (-1, -2, -5, -14, -16, -22, 1, 7, 255, -(1 << 31), (1 << 31) - 1)
PORTS = (-1, 0, 0, 0, 1, 1, 2, 3, 4, 7, 31, 32, 100, 561, 562, 65535)
MTUS = (0, 1, 67, 68, 69, 1500, 9000, 16383, 16384, 16385, 65535)
TOP_BITS = (0, 0, 1, 2, 2, 3, 4, 5, 6, 7)
DIRS = (0, 1, 2, 3, 3, 4, 5, 6, -1)

# What a step may call and see fail.
ADD_PROFILE = ("vask_p4_indexstack_alloc", "vask_p4_mep_add_meter_profile")
DEL_PROFILE = ("vask_p4_mep_del_meter_profile",) * 3 + ("vask_p4_indexstack_free",)
ADD_POLICY = ("vask_p4_indexstack_alloc", "vask_p4_mep_add_meter_policy")
DEL_POLICY = ("vask_p4_mep_del_meter_policy",) * 3 + ("vask_p4_indexstack_free",)
SHAPERS = ("vask_p4_isch_shaper_csr_write", "vask_cmd_set_shaper", "vask_p4_get_global_cmd_channel")
TX_PORT = ("qorn_input_port_tx_table_get", "qorn_input_port_tx_table_add")
CREATE = SHAPERS + ("calloc", "vask_p4_priv_data_get", "vask_p4_indexstack_alloc",
                    "vask_p4_mep_update_meter_output_by_meterid")
DESTROY = SHAPERS + ("vask_p4_mep_del_meter_output_by_meterid", "vask_p4_indexstack_free")
CALLED_BY = {
    "padd": ADD_PROFILE + ("calloc",), "t_padd": ADD_PROFILE + ("calloc",), "t_pmod": ADD_PROFILE,
    "p2hw": ADD_PROFILE, "pconv_hw": ADD_PROFILE, "pdel": DEL_PROFILE, "t_pdel": DEL_PROFILE,
    "pdel2hw": DEL_PROFILE, "qadd": ADD_POLICY + ("calloc",), "t_qadd": ADD_POLICY + ("calloc",),
    "default": ADD_POLICY + ("calloc",), "t_qmod": ADD_POLICY, "q2hw": ADD_POLICY, "qconv_hw": ADD_POLICY,
    "qdel": DEL_POLICY, "t_qdel": DEL_POLICY, "qdel2hw": DEL_POLICY, "create": CREATE, "t_iadd": CREATE,
    "inst_create": CREATE, "enable": SHAPERS, "m2hw": SHAPERS, "pupd": SHAPERS, "upd_2_hw": SHAPERS,
    "t_imod": SHAPERS, "disable": DESTROY, "destroy": DESTROY, "t_idel": DESTROY, "mdel2hw": DESTROY,
    "stats": ("vask_p4_mep_read_meter_inst",),
    "mtu": ("vask_p4_mep_update_meter_output_by_mtu", "vask_p4_priv_data_get"),
    "cfg_2_pol": ("qorn_meter_profile_update", "qorn_meter_table_update"),
    "del_2_pol": ("qorn_meter_profile_delete", "qorn_meter_table_delete"),
    "port_add": TX_PORT + ("vask_p4_mep_update_meter_output_by_meterid",),
    "port_del": TX_PORT + ("vask_p4_mep_del_meter_output_by_meterid",),
    "init": ("vask_p4_indexstack_create", "vask_p4_indexstack_create", "calloc"),
    "idx_get": ("vask_p4_indexstack_alloc",), "idx_free": ("vask_p4_indexstack_free",),
}


class Generator:
    """Scenarios by seed: the same seed and number give the same scenario everywhere."""

    def __init__(self, seed):
        self.seed = seed

    def scenario(self, number):
        self.r = Random(f"{self.seed}/{number}")
        r = self.r
        ports = [[0, r.choice((0, 1, 5, 100))], [1, 7935], [2, r.choice((7936, 16384, 65535))],
                 [4, r.choice((5, 7000))], [31, 31], [100, 9], [561, 11]]
        if r.random() < 0.3:
            ports.append([-1, r.choice((5, 77, 7936))])
        scenario = {"id": number, "ports": ports}
        if r.random() < 0.5:
            scenario["tx"] = r.randbytes(28).hex()
        self.direct = r.choice((0, 0.15, 0.5))
        self.faulty = r.choice((0, 0, 0.1, 0.4))
        self.ids = (1, 1, 2, 2, 3) + tuple(r.choices(IDS, k=r.choice((0, 1, 3))))
        self.meter_ids = (1, 1, 2, 2) + tuple(r.choices(METERS, k=r.choice((0, 1, 2))))
        self.port_ids = (0, 0, 1) + tuple(r.choices(PORTS, k=r.choice((0, 1, 3))))
        steps = [] if r.random() < 0.02 else [{"o": "init", "a": []}]
        if r.random() < 0.15:
            steps += self.tight_pools()
        if r.random() < 0.8:
            steps += self.base()
        for _ in range(r.choice((5, 15, 30, 60))):
            steps.append(self.step())
        scenario["steps"] = steps
        return scenario

    def tight_pools(self):
        r = self.r
        pool = r.randrange(3)
        last = 4095 if pool == 0 else 254 if pool == 2 else 255
        return [{"o": "fill", "a": [pool, r.choice((1, 1, 2)), last - r.choice((0, 1, 2))]}]

    def base(self):
        """Some profiles, policies and meters to work on."""
        steps = []
        for id_ in self.r.sample((1, 2, 3), 2):
            steps.append({"o": "padd", "a": [0, id_, self.good_profile(), 1]})
            if self.r.random() < 0.9:
                steps.append({"o": "qadd", "a": [0, id_, self.good_policy(), 1]})
        for id_ in (1, 2):
            steps.append({"o": "create", "a": [0, id_, self.params(), 0, 1]})
        return steps

    def step(self):
        r = self.r
        if r.random() < self.direct:
            name = r.choice(DIRECT)
        else:
            name = r.choices(NAMES, cum_weights=WEIGHTS)[0]
        step = {"o": name, "a": MAKERS[name](self, r)}
        operations = CALLED_BY.get(name)
        if operations and r.random() < self.faulty:
            step["f"] = [[r.choice(operations), r.choice((1, 1, 1, 2)), r.choice(CODES)]
                         for _ in range(r.choice((1, 1, 2)))]
        return step

    # arguments

    def rate(self):
        r = self.r
        return r.choice(RATES) if r.random() < 0.8 else r.getrandbits(r.choice((16, 33, 64)))

    def burst(self):
        r = self.r
        return r.choice(BURSTS) if r.random() < 0.8 else r.getrandbits(r.choice((12, 24, 64)))

    def port(self):
        return self.r.choice(self.port_ids)

    def e(self):
        return int(self.r.random() < 0.9)

    def id(self):
        return self.r.choice(self.ids)

    def meter(self):
        return self.r.choice(self.meter_ids)

    def small(self):
        return self.r.randrange(4)

    def good_profile(self):
        r = self.r
        alg = r.choice((1, 2, 3))
        rates = sorted((self.rate(), self.rate()))
        if alg == 1:
            return [1, r.choice((0, 1)), rates[0], self.burst(), self.burst(), 0]
        return [alg, r.choice((0, 1)), *rates, self.burst(), self.burst()]

    def profile(self):
        r = self.r
        chance = r.random()
        if chance < 0.03:
            return None
        if chance < 0.7:
            return self.good_profile()
        return [r.choice((0, 1, 2, 2, 3, 4, -1)), r.choice(MODES), self.rate(), self.rate(), self.burst(),
                self.burst()]

    def action(self):
        r = self.r
        chance = r.random()
        if chance < 0.45:
            return ["D"]
        if chance < 0.85:
            return ["S", r.choice((0, 1, 10, 46, 62, 63, 64, 65, 128, 255))]
        return r.choice((["N"], ["N"], ["6", 10], ["V"], ["Q"], ["T", 0x7FFFFFF], ["T", 13]))

    def good_policy(self):
        r = self.r
        return [[r.choice((["D"], ["S", r.randrange(64)]))] if r.random() < 0.6 else [] for _ in range(3)]

    def policy(self):
        r = self.r
        chance = r.random()
        if chance < 0.03:
            return None
        if chance < 0.6:
            return self.good_policy()
        return [None if r.random() < 0.1 else [self.action() for _ in range(r.choice((0, 1, 1, 2, 2, 3)))]
                for _ in range(3)]

    def params(self):
        r = self.r
        mask = r.choice(TOP_BITS) << 61 | r.choice((0, 8, 128, 136, 255, r.getrandbits(8),
                                                    r.getrandbits(61)))
        return [self.id(), r.choice((0, 1, 2, -1)), r.choice((0, 1, 2, 3)), mask,
                0 if r.random() < 0.4 else self.id(), r.choice((0, 1, 0xFFFFFFFF))]

    def params_or_null(self):
        return None if self.r.random() < 0.03 else self.params()

    def profile_row(self):
        r = self.r
        if r.random() < 0.03:
            return None
        words = (self.rate(), self.rate(), self.burst(), self.burst())
        return b"".join(w.to_bytes(8, "little") for w in words).hex() + f"{r.getrandbits(8):02x}"

    def policer_row(self):
        return None if self.r.random() < 0.03 else self.r.randbytes(3).hex()

    def instance_row(self):
        r = self.r
        if r.random() < 0.03:
            return None
        port = self.port() & 0xFFFF
        row = (r.getrandbits(13) | (r.random() < 0.5) | port << 13 | (self.id() & 255) << 29
               | (r.choice((0, self.id())) & 255) << 37
               | r.getrandbits(3) << 45)
        return row.to_bytes(6, "little").hex()

    def stats(self):
        r = self.r
        mask = None if r.random() < 0.03 else r.choice((0, 1, 8, 8, 128, 136, 0x77, 255, 1 << 63 | 8))
        return [self.port(), self.meter(), mask, r.choice((0, 1)), int(r.random() > 0.03), self.e()]

    def fields(self):
        profile = self.good_profile()
        record = [profile[2], profile[4], profile[3], profile[5], profile[1], int(profile[0] == 2)]
        if profile[0] == 1:
            record = [profile[2], profile[3], 0, profile[4], profile[1], 0]
        if self.r.random() < 0.3:
            record[5] = self.r.choice((0, 1, 2, 0xFFFFFFFF))
        if self.r.random() < 0.5:
            place = self.r.randrange(5)
            record[place] = record[place] ^ 1 << self.r.choice((0, 3, 30))
        return [record, profile]

    def poke(self):
        r = self.r
        which = r.choice("PQMMM")
        field = r.choice((0, 1, 2, 3, 4, 5, 6, 7, 8, 10))
        if which == "M":
            field = r.choice((0, 1, 2, 3, 3, 3, 4, 5, 6, 7, 8, 9))
            value = {0: self.meter, 2: lambda: r.choice((5, 16383, 16384, 0x10005)),
                     3: lambda: r.choice((0, 1, 2, 3, 4, 0xFFFFFFFF))}.get(
                         field, lambda: r.choice((0, 1, 5, 255, 256, 65535, 65536, 0x12345, 0xFFFFFFFF)))()
        elif field == 6:
            value = self.id()
        else:
            value = r.choice((0, 1, 2, 3, 7, 255, 256, 0x7FFFFFFF, 0xFFFFFFFF, (1 << 64) - 1))
        return [which, self.small(), field, value]


def port_id(g, _):
    return [g.port(), g.id(), g.e()]


def port_meter(g, _):
    return [g.port(), g.meter(), g.e()]


# name: (weight among the operations of users, 0 for those reached directly; arguments)
STEPS = {
    "cap": (1, lambda g, r: [g.port(), g.e()]),
    "padd": (9, lambda g, r: [g.port(), g.id(), g.profile(), g.e()]),
    "pdel": (3, port_id),
    "pupd": (7, lambda g, r: [g.port(), g.meter(), g.id(), g.e()]),
    "qval": (3, lambda g, r: [g.port(), g.policy(), g.e()]),
    "qadd": (8, lambda g, r: [g.port(), g.id(), g.policy(), g.e()]),
    "qdel": (3, port_id),
    "create": (18, lambda g, r: [g.port(), g.meter(), g.params_or_null(), r.choice((0, 1)), g.e()]),
    "destroy": (5, port_meter),
    "enable": (6, port_meter),
    "disable": (8, port_meter),
    "stats": (5, lambda g, r: g.stats()),
    "ops_get": (0.5, lambda g, r: [g.port()]),
    "init": (0.2, lambda g, r: []),
    "fini": (0.2, lambda g, r: []),
    "find_hw": (1, lambda g, r: [g.meter()]),
    "get_q": (1, lambda g, r: [g.id()]),
    "default": (0.5, lambda g, r: [g.id()]),
    "mtu": (3, lambda g, r: [g.port(), r.choice(MTUS)]),
    "conv_inst": (2, lambda g, r: [g.small(), r.randbytes(32).hex()]),
    "cfg_2_pol": (2.5, lambda g, r: [g.small(), g.small(), g.meter()]),
    "t_padd": (5, lambda g, r: [g.id(), g.profile_row()]),
    "t_pmod": (4, lambda g, r: [g.id(), g.profile_row()]),
    "t_pdel": (1, lambda g, r: [g.id()]),
    "t_qadd": (4, lambda g, r: [g.id(), g.policer_row()]),
    "t_qmod": (4, lambda g, r: [g.id(), g.policer_row()]),
    "t_qdel": (1, lambda g, r: [g.id()]),
    "t_iadd": (6, lambda g, r: [g.meter(), g.instance_row()]),
    "t_imod": (8, lambda g, r: [g.meter(), g.instance_row()]),
    "t_idel": (1.5, lambda g, r: [g.meter()]),
    "inst": (3, lambda g, r: [r.randrange(2), r.choice((r.randbytes(32).hex(), "ff" * 32))]),
    "inst_create": (0, lambda g, r: [g.port(), g.meter(), g.params(), r.choice((0, 1, 2, 3, -1)),
                                     r.choice((0, 1, 2, 3)), r.choice(DIRS), g.e()]),
    "find_m": (0, lambda g, r: [g.meter()]),
    "find_p": (0, lambda g, r: [g.id()]),
    "find_q": (0, lambda g, r: [g.id()]),
    "del_2_pol": (0, lambda g, r: [g.meter()]),
    "upd_2_hw": (0, lambda g, r: [g.small(), g.small()]),
    "pconv": (0, lambda g, r: [g.rate(), g.profile() or g.good_profile()]),
    "ptype": (0, lambda g, r: [r.choice((None, [r.choice((0, 1, 5)), r.choice((0, 1, 2))]))]),
    "pcmp": (0, lambda g, r: g.fields()),
    "pconv_hw": (0, lambda g, r: [r.choice((0, 1)), r.choice((0, 1, 255, 300)), g.small()]),
    "p2hw": (0, lambda g, r: [g.small()]),
    "pdel2hw": (0, lambda g, r: [g.small()]),
    "pref": (0, port_id),
    "qconv_hw": (0, lambda g, r: [r.choice((0, 1)), r.choice((0, 1, 255, 300)), g.small()]),
    "q2hw": (0, lambda g, r: [g.small()]),
    "qdel2hw": (0, lambda g, r: [g.small()]),
    "qref": (0, port_id),
    "m2hw": (0, lambda g, r: [g.small()]),
    "mdel2hw": (0, lambda g, r: [g.small()]),
    "port_add": (0, lambda g, r: [r.choice((0, 1, 1, 2, 3, -1)), g.small(), g.e()]),
    "port_del": (0, lambda g, r: [r.choice((0, 1, 1, 2, 3, -1)), g.small()]),
    "shaper": (0, lambda g, r: [r.choice((0, 5, 65535, 0x10005, 0xFFFFFFFF)), g.rate(), r.choice(MODES),
                                r.randbytes(12).hex()]),
    "isch": (0, lambda g, r: [g.rate(), r.choice(MODES), r.randbytes(4).hex()]),
    "unshaper": (0, lambda g, r: [r.choice((0, 5, 65535, 0x10005, 0xFFFFFFFF)), r.choice(MODES),
                                  r.randbytes(12).hex()]),
    "idx_get": (0, lambda g, r: [r.randrange(3)]),
    "idx_free": (0, lambda g, r: [r.randrange(3), r.choice((0, 1, 2, 3, 255, 256, 4096))]),
    "idx_set": (0, lambda g, r: [r.randrange(3), r.choice((0, 1, 2, 3, 255, 256, 4096))]),
    "from_std": (0, lambda g, r: [r.choice((0, 1, 1, 1)), g.profile_row()]),
    "fill": (0, lambda g, r: [r.randrange(3), r.choice((1, 2, 4)), r.choice((3, 255, 4095))]),
    "drain": (0, lambda g, r: [r.randrange(3), r.choice((1, 2, 4)), r.choice((3, 255, 4095))]),
    "poke": (0, lambda g, r: g.poke()),
}

MAKERS = {name: maker for name, (_, maker) in STEPS.items()}
NAMES = tuple(name for name, (weight, _) in STEPS.items() if weight)
DIRECT = tuple(name for name, (weight, _) in STEPS.items() if not weight) + ("poke",) * 8
WEIGHTS = []
for _name in NAMES:
    WEIGHTS.append((WEIGHTS[-1] if WEIGHTS else 0) + STEPS[_name][0])
