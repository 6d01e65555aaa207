"""The P4 tables: packed rows, and add, modify and delete on profiles, policers and meters."""

from card import EINVAL, ERR, INFO, WARNING
from profiles import RFC2697
from records import Policy, s32


def bits(row, low, width):
    """A field of a packed row."""
    return int.from_bytes(row, "little") >> low & (1 << width) - 1


class Tables:

    @staticmethod
    def from_std(row, profile):
        """Fills the list [alg, packet_mode, w1..w4] from a profile row; either may be None."""
        if row is None or profile is None:
            return -1
        cir, eir, cbs, ebs = (bits(row, 64 * n, 64) for n in range(4))
        profile[0] = bits(row, 258, 2) + 1
        profile[1] = bits(row, 256, 2)
        if profile[0] == RFC2697:
            profile[2:5] = cir, cbs, ebs
        elif profile[0] <= 3:
            profile[2:6] = cir, eir, cbs, ebs
        else:
            return -1
        return 0

    def t_padd(self, id_, row):
        profile = [0] * 6
        if self.from_std(row, profile):
            return -1
        return self.profile_add(id_, profile, [])

    def t_pmod(self, id_, row):
        name = "talvora_p4_offload_meter_table_profile_mod"
        if row is None:
            return -1
        node = self.find_profile(id_)
        if node is None:
            self.log(ERR, name, f"input meter policy id {s32(id_)} not found")
            return -1
        node.off_hw_state = 1
        node.cir, node.eir, node.cbs, node.ebs = (bits(row, 64 * n, 64) for n in range(4))
        node.packet_mode = bits(row, 256, 2)
        if bits(row, 258, 2) == 1:
            node.rfc2698_mode = 1
        if self.add_profile_2_hw(node):
            return -1
        node.off_hw_state = 2
        self.log_profile_added(name, node)
        return 0

    def t_pdel(self, id_):
        return self.profile_delete(id_, [])

    @staticmethod
    def fill_policy(node, row):
        node.red_action, node.red_dscp = bits(row, 0, 2), bits(row, 2, 6)
        node.yellow_action, node.yellow_dscp = bits(row, 8, 2), bits(row, 10, 6)
        node.green_action, node.green_dscp = bits(row, 16, 2), bits(row, 18, 6)

    def t_qadd(self, id_, row):
        name = "talvora_p4_offload_meter_table_policer_add"
        if row is None:
            return -1
        if self.find_policy(id_) is not None:
            self.log(ERR, name, f"input meter policy id is existid; id is {s32(id_)}")
            return -1
        if not self.calloc("Q"):
            return -1
        node = Policy()
        node.off_hw_state, node.policy_id = 1, id_
        self.fill_policy(node, row)
        if self.add_policy_2_hw(node):
            self.free("Q")
            return -1
        node.off_hw_state = 2
        self.policies.append(node)
        self.log(INFO, name,
                 f"{name}: priv add meter policy {s32(node.policy_id)}{self.policy_tail(node)}")
        return 0

    def t_qmod(self, id_, row):
        name = "talvora_p4_offload_meter_table_policer_mod"
        if row is None:
            return -1
        node = self.find_policy(id_)
        if node is None:
            self.log(ERR, name, f"input meter policy id {s32(id_)} not found")
            return -1
        node.off_hw_state = 1
        self.fill_policy(node, row)
        if self.add_policy_2_hw(node):
            return -1
        node.off_hw_state = 2
        self.log(INFO, name,
                 f"{name}: priv mod meter policy {s32(node.policy_id)}{self.policy_tail(node)}")
        return 0

    def t_qdel(self, id_):
        return self.policy_delete(id_, [])

    def t_iadd(self, id_, row):
        if row is None:
            return -1
        port = bits(row, 13, 16)
        if port >= 562:
            self.log(ERR, "talvora_p4_offload_meter_table_instance_add",
                     f"dpdk_port should less 32 , port:{port}")
            return -EINVAL
        kind = bits(row, 0, 1)
        params = [bits(row, 29, 8), bits(row, 3, 1), bits(row, 2, 1), bits(row, 5, 8), bits(row, 37, 8), 0]
        self.inst_create(port if kind else -1, id_, params, kind, bits(row, 4, 1),
                         5 if bits(row, 1, 1) else 4, [])
        return 0

    def t_idel(self, id_):
        return self.destroy(id_, [])

    def t_imod(self, id_, row):
        name = "talvora_p4_offload_meter_table_instance_mod"
        if row is None:
            return -1
        profile_id, policy_id = bits(row, 29, 8), bits(row, 37, 8)
        profile = self.find_profile_byid(profile_id)
        policy = self.find_policy_byid(policy_id)
        meter = self.find_meter(id_)
        old_profile_id = old_policy_id = 0
        old_profile = old_policy = None
        if meter is not None:
            old_profile_id, old_policy_id = meter.profile.profile_id, meter.policy.policy_id
            old_profile = self.find_profile_byid(old_profile_id)
            old_policy = self.find_policy_byid(old_policy_id)
        if None in (profile, policy, old_profile, old_policy):
            self.log(ERR, name,
                     f"[mod meter]input id err, meter is {s32(id_)}, profile id {profile_id}, "
                     f"policy {policy_id}, src profile {s32(old_profile_id)}, "
                     f"src policy {s32(old_policy_id)}")
            return -1
        meter.sl = 0
        self.init_lock("M")
        meter.meter_id, meter.off_hw_state = id_, 1
        meter.take(profile, policy)
        meter.dir, meter.enable = bits(row, 1, 1), bits(row, 2, 1)
        meter.is_ori_pktlen, meter.is_color_aware = bits(row, 4, 1), bits(row, 3, 1)
        meter.stats_mask, meter.type = bits(row, 5, 8), bits(row, 0, 1)
        if self.add_meter_2_hw(meter):
            self.log(ERR, name, f"mod meter {s32(id_)} to hw err")
            return -1
        self.move_reference("P", old_profile, -1)
        self.move_reference("P", profile, 1)
        self.move_reference("Q", old_policy, -1)
        self.move_reference("Q", policy, 1)
        self.log(WARNING, name,
                 f"[change ref]:src profile ref {s32(old_profile.ref_cnt)} new ref "
                 f"{s32(profile.ref_cnt)}, src policy ref {s32(old_policy.ref_cnt)} new ref "
                 f"{s32(policy.ref_cnt)}")
        meter.off_hw_state = 2
        self.log(WARNING, name,
                 f"[meter]: mod meter {s32(id_)}, profle {s32(profile.profile_id)} --> hw meter: "
                 f"{s32(meter.hw_meter_id)}, hw profile {s32(profile.hw_profile_id)}")
        return 0
