"""The registry's records and the card's record images, as the reference model keeps them.

Records print themselves as the state text of FORMAT.md wants them. Card records are built as one integer,
lowest bit first, and turned into memory order at the end.
"""

U16 = 0xFFFF
U32 = 0xFFFFFFFF
U64 = 0xFFFFFFFFFFFFFFFF

INT_FIELDS_P = ("cir", "cbs", "eir", "ebs", "packet_mode", "rfc2698_mode", "profile_id", "ref_cnt",
                "off_hw_state", "sl", "hw_profile_id")
INT_FIELDS_Q = ("red_dscp", "yellow_dscp", "green_dscp", "red_action", "yellow_action", "green_action",
                "policy_id", "ref_cnt", "off_hw_state", "sl", "hw_policy_id")
INT_FIELDS_M = ("meter_id", "hw_meter_id", "port_sfi", "dir", "enable", "type", "is_color_aware",
                "is_ori_pktlen", "stats_mask", "off_hw_state", "sl")


def s32(value):
    """The low 32 bits as a signed number, as %d prints them."""
    return ((value & U32) ^ 0x80000000) - 0x80000000


def alt_hex(value):
    """As %#x prints an unsigned int: a zero has no prefix."""
    value &= U32
    return f"{value:#x}" if value else "0"


class Profile:
    """A meter profile; `profile` is the engine record last written, as hex."""
    __slots__ = INT_FIELDS_P + ("profile",)
    WIDTH = (64, 64, 64, 64, 32, 32, 32, 32, 32, 32, 32)

    def __init__(self):
        self.clear()

    def clear(self):
        self.cir = self.cbs = self.eir = self.ebs = 0
        self.packet_mode = self.rfc2698_mode = self.profile_id = self.ref_cnt = 0
        self.off_hw_state = self.sl = self.hw_profile_id = 0
        self.profile = "0" * 24

    def copy(self):
        new = Profile.__new__(Profile)
        new.cir, new.cbs, new.eir, new.ebs = self.cir, self.cbs, self.eir, self.ebs
        new.packet_mode, new.rfc2698_mode = self.packet_mode, self.rfc2698_mode
        new.profile_id, new.ref_cnt, new.off_hw_state = self.profile_id, self.ref_cnt, self.off_hw_state
        new.sl, new.hw_profile_id, new.profile = self.sl, self.hw_profile_id, self.profile
        return new

    def text(self):
        return (f"{self.cir:x},{self.cbs:x},{self.eir:x},{self.ebs:x},{self.packet_mode:x},"
                f"{self.rfc2698_mode:x},{self.profile_id:x},{self.ref_cnt:x},{self.off_hw_state:x},"
                f"{self.sl:x},{self.hw_profile_id:x},{self.profile}")


class Policy:
    """A meter policy; `policy` is the engine record last written, as hex."""
    __slots__ = INT_FIELDS_Q + ("policy",)
    WIDTH = (32,) * 11

    def __init__(self):
        self.clear()

    def clear(self):
        self.red_dscp = self.yellow_dscp = self.green_dscp = 0
        self.red_action = self.yellow_action = self.green_action = 0
        self.policy_id = self.ref_cnt = self.off_hw_state = self.sl = self.hw_policy_id = 0
        self.policy = "0" * 8

    def copy(self):
        new = Policy.__new__(Policy)
        new.red_dscp, new.yellow_dscp, new.green_dscp = self.red_dscp, self.yellow_dscp, self.green_dscp
        new.red_action, new.yellow_action = self.red_action, self.yellow_action
        new.green_action, new.policy_id, new.ref_cnt = self.green_action, self.policy_id, self.ref_cnt
        new.off_hw_state, new.sl, new.hw_policy_id = self.off_hw_state, self.sl, self.hw_policy_id
        new.policy = self.policy
        return new

    def text(self):
        return (f"{self.red_dscp:x},{self.yellow_dscp:x},{self.green_dscp:x},{self.red_action:x},"
                f"{self.yellow_action:x},{self.green_action:x},{self.policy_id:x},{self.ref_cnt:x},"
                f"{self.off_hw_state:x},{self.sl:x},{self.hw_policy_id:x},{self.policy}")


class Meter:
    """A meter with its own copies of profile and policy, which are never changed, only replaced."""
    __slots__ = INT_FIELDS_M + ("profile", "policy", "table", "table_inst", "mep_inst", "copies")
    WIDTH = (32, 32, 32, 32, 1, 1, 1, 1, 32, 32, 32)

    def __init__(self):
        self.meter_id = self.hw_meter_id = self.port_sfi = self.dir = 0
        self.enable = self.type = self.is_color_aware = self.is_ori_pktlen = 0
        self.stats_mask = self.off_hw_state = self.sl = 0
        self.table, self.table_inst, self.mep_inst = "0" * 32, "0" * 40, "0" * 64
        self.profile, self.policy = Profile(), Policy()
        self.copies = None

    def take(self, profile=None, policy=None):
        """Replaces the copies."""
        if profile is not None:
            self.profile = profile.copy()
        if policy is not None:
            self.policy = policy.copy()
        self.copies = None

    def text(self):
        if self.copies is None:
            self.copies = self.profile.text() + "," + self.policy.text()
        return (f"{self.meter_id:x},{self.hw_meter_id:x},{self.port_sfi:x},{self.dir:x},{self.enable:x},"
                f"{self.type:x},{self.is_color_aware:x},{self.is_ori_pktlen:x},{self.stats_mask:x},"
                f"{self.off_hw_state:x},{self.sl:x},{self.copies},{self.table},{self.table_inst},"
                f"{self.mep_inst}")


def engine_profile(ebs, cbs, eir, cir, pm, rfc2698):
    """The meter engine's profile entry, 96 bits, valid, cf 0; hex."""
    image = (ebs | cbs << 20 | eir << 41 | cir << 67 | pm << 93 | rfc2698 << 94 | 1 << 95)
    return image.to_bytes(12, "little").hex()


def engine_policy(policy):
    """The meter engine's policy entry, 32 bits, valid; its value."""
    return (policy.red_action & 3 | (policy.yellow_action & 3) << 2 | (policy.green_action & 3) << 4
            | (policy.red_dscp & 63) << 6 | (policy.yellow_dscp & 63) << 12
            | (policy.green_dscp & 63) << 18 | 1 << 31)


def pipeline_profile(profile):
    """The pipeline's meter profile, 128 bits, raw values, cbsm and valid; hex."""
    image = ((profile.packet_mode & 1) << 25 | (profile.rfc2698_mode & 1) << 26 | 1 << 27
             | (profile.cbs & 0xFFFFF) << 31 | (profile.ebs & 0xFFFFF) << 51
             | (profile.cir & 0xFFFFFFF) << 71 | (profile.eir & 0xFFFFFFF) << 99 | 1 << 127)
    return image.to_bytes(16, "little").hex()


def pipeline_meter(profile_id):
    """The pipeline's meter, 160 bits, state reset; hex."""
    return ((profile_id & 0xFF) << 148 | 1 << 156).to_bytes(20, "little").hex()


def hex32(value):
    """A 32-bit word in memory order."""
    return value.to_bytes(4, "little").hex()


def word(text):
    """The number that memory-order hex stands for."""
    return int.from_bytes(bytes.fromhex(text), "little")


def ranges(used):
    """Ascending ranges of a list of truth values."""
    out, first = [], None
    for index, taken in enumerate(used):
        if taken and first is None:
            first = index
        elif not taken and first is not None:
            out.append((first, index - 1))
            first = None
    if first is not None:
        out.append((first, len(used) - 1))
    return ",".join(str(a) if a == b else f"{a}-{b}" for a, b in out)
