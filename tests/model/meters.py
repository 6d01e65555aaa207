"""Meters: creation, operation, teardown, live profile change."""

from card import DEBUG, EINVAL, ERR, INFO, WARNING
from profiles import E_PROFILE, E_PROFILE_ID, E_UNSPEC, OWN_MESSAGE
from policies import E_POLICY_ID
from records import Meter, U32, U64, alt_hex, pipeline_meter, pipeline_profile, s32

E_MTR_ID, E_MTR_PARAMS, E_STATS_MASK = 5, 6, 10
STORED_DIR = {1: 1, 2: 0, 3: 3, 4: 0, 5: 1}


class Meters:

    def find_meter(self, meter_id):
        """The first such node; 0 is never found."""
        if meter_id:
            for node in self.meters:
                if node.meter_id == meter_id:
                    return node
        return None

    def find_any_meter(self, meter_id):
        """The same walk with 0 as an ordinary key."""
        for node in self.meters:
            if node.meter_id == meter_id:
                return node
        return None

    # creation

    def create(self, port, meter_id, params, error):
        if params is None:
            return self.fail(error, E_UNSPEC, OWN_MESSAGE)
        mask = params[3]
        dir_ = 2 if mask >> 63 & 1 else 1 if mask >> 62 & 1 else 3
        self.ev.append(f"L8|[offload_smartnic]create meter, dir: {alt_hex(dir_)}\n")
        return self.inst_create(port, meter_id, params, 1, mask >> 61 & 1, dir_, error)

    def inst_create(self, port, meter_id, params, port_type, use_ori_pkt, dir_, error):
        name = "vask_p4_meter_inst_create"
        if params is None:
            return self.fail(error, E_UNSPEC, OWN_MESSAGE)
        profile_id, use_prev, enable, mask, policy_id, _ = params
        sfi = self.priv_port(port)
        self.log(DEBUG, name, "\n* meter input params dump :")
        self.dump_line(f"      meter_id\t\t\t: {alt_hex(meter_id)}")
        self.dump_line(f"      enable\t\t\t\t: {alt_hex(enable)}")
        self.dump_line(f"      profile_id\t\t\t: {alt_hex(profile_id)}")
        self.dump_line(f"      policy_id\t\t\t: {alt_hex(policy_id)}")
        self.dump_line(f"      corlor_mode\t\t\t: {alt_hex(use_prev)}")
        self.dump_line(f"      use_ori_pkt\t\t\t: {alt_hex(use_ori_pkt)}")
        self.dump_line(f"      stats_mask\t\t\t: {alt_hex(mask)}")
        self.log(DEBUG, name, "* over......")
        if sfi is None or sfi > 7935:
            self.log(ERR, name,
                     f"add meter but port sfi is err, priv: {'(nil)' if sfi is None else '*'}")
            return self.fail(error, E_UNSPEC, "add meter but port sfi is err")
        profile = self.find_profile_byid(profile_id)
        if profile is None:
            self.log(ERR, name, f"add meter but not find profile, meter {s32(meter_id)}, "
                                f"prf {s32(profile_id)}")
            return self.fail(error, E_PROFILE_ID, "add meter but not find profile")
        policy = self.find_policy_byid(policy_id)
        if policy is None:
            return self.fail(error, E_POLICY_ID, "add meter but not find policy")
        if self.find_meter(meter_id) is not None:
            self.log(ERR, name, f"add meter has exist, id is {s32(meter_id)}")
            return self.fail(error, E_MTR_ID, "meter id repeat err")
        if not self.calloc("M"):
            return self.fail(error, E_UNSPEC, "Cannot allocate memory for meter")
        node = Meter()
        self.init_lock("M")
        node.meter_id, node.off_hw_state = meter_id, 1
        node.take(profile, policy)
        node.dir = STORED_DIR.get(dir_, 0)
        node.enable, node.is_ori_pktlen, node.is_color_aware = enable & 1, use_ori_pkt & 1, use_prev & 1
        node.stats_mask, node.type, node.port_sfi = mask & U32, port_type & 1, sfi
        self.lock("M")
        code, index = self.pool_alloc(0)
        self.unlock()
        if code:
            self.log(ERR, name, f"meter get meter id failed, rc = {code}")
            return -1
        node.hw_meter_id = index
        if self.add_meter_2_hw(node):
            return self.create_failed(meter_id, error)
        node.off_hw_state = 2
        self.log(WARNING, name,
                 f"[meter]: meter {s32(meter_id)}, profle {s32(profile.profile_id)} --> hw meter: "
                 f"{index}, hw profile {s32(profile.hw_profile_id)}")
        if port_type:
            if node.dir in (0, 3) and self.add_port_to_hw(0, node, error):
                return self.create_failed(meter_id, error)
            self.log(INFO, name, f"[meter]: dir {'tx' if node.dir else 'rx'} create meter port "
                                 f"{node.port_sfi} meter_id {s32(meter_id)}")
        self.move_reference("P", profile, 1)
        self.move_reference("Q", policy, 1)
        self.meters.append(node)
        return 0

    def move_reference(self, kind, node, step):
        self.lock(kind)
        node.ref_cnt = node.ref_cnt + step & U32
        self.unlock()

    def create_failed(self, meter_id, error):
        self.free("M")
        self.log(INFO, "vask_p4_meter_inst_create",
                 f"[meter]: create meter err free meter_id {s32(meter_id)}")
        return self.fail(error, E_MTR_PARAMS, "table add meter failed")

    # operation

    def enable(self, meter_id, error):
        name = "vask_p4_meter_enable"
        node = self.find_meter(meter_id)
        if node is None:
            self.log(ERR, name, f"enable meter id not found, id is {s32(meter_id)}")
            return self.fail(error, E_MTR_ID, "meter id not found!")
        if not node.enable:
            return self.add_meter_2_hw(node)
        self.log(WARNING, name, "enable meter is open, no need do!")
        return 0

    def disable(self, meter_id, error):
        name = "vask_p4_meter_disable"
        node = self.find_meter(meter_id)
        if node is None:
            self.log(ERR, name, f"disable meter id not found, id is {s32(meter_id)}")
            return self.fail(error, E_MTR_ID, "meter id not found!")
        if node.enable:
            return self.del_meter_2_hw(node)
        self.log(WARNING, name, "disable meter is not open, no need do!")
        return 0

    def stats_read(self, meter_id, mask, stats, error):
        """`stats` is a list of 8 words or None."""
        name = "vask_p4_meter_stats_read"
        if stats is None or mask is None:
            return self.fail(error, E_UNSPEC, OWN_MESSAGE)
        if not mask & 0x88:
            return self.fail(error, E_STATS_MASK, "stats mask only support drop pkts or bytes")
        node = self.find_any_meter(meter_id)
        if node is None:
            self.log(ERR, name, "[meter]: meter stats not find meter node!")
            return 0
        self.log(INFO, name, "[meter]: meter stats find meter node!")
        packets = octets = 0
        lines = []
        for engine, side in ((0, "rx"), (1, "tx")):
            if node.dir == 1 - engine:
                continue
            inst = self.read_instance(engine, node.hw_meter_id)
            count, length = inst >> 96 & U32, inst >> 192
            packets, octets = packets + count & U32, octets + length & U64
            lines.append(f"[meter]: meter {s32(node.hw_meter_id)} read {side}: cnt = {count}, "
                         f"len = {length}!")
        for line in lines:
            self.log(INFO, name, line)
        stats[6], stats[7] = packets, octets
        return 0

    def mtu_set(self, port, mtu):
        name = "vask_p4_dev_mtu_set"
        sfi = self.priv_port(port)
        if sfi is None:
            return -EINVAL
        if mtu < 68 or mtu > 16384:
            self.log(ERR, name, f"mtu should beteen 68 and 16k , mtu:{mtu}")
            return -EINVAL
        self.log(INFO, name, f"[mep meter output]:port {sfi} set mtu:{mtu}")
        return self.call("vask_p4_mep_update_meter_output_by_mtu", f"{sfi},{mtu}")

    # teardown

    def destroy(self, meter_id, error):
        name = "vask_p4_meter_destroy"
        node = self.find_any_meter(meter_id)
        if node is None:
            self.log(INFO, name, f"del meter id not found, id is {s32(meter_id)}")
            return 0
        profile_id, policy_id = node.profile.profile_id, node.policy.policy_id
        self.profile_ref_dec(profile_id)
        self.policy_ref_dec(policy_id)
        if self.del_meter_2_hw(node):
            return self.fail(error, E_MTR_ID, "meter delete not success")
        self.meters.remove(node)
        self.log(INFO, name, f"del meter suc, meter is {s32(meter_id)} profile_id {s32(profile_id)} "
                             f"policy_id {s32(policy_id)}")
        self.free("M")
        return 0

    # live profile change and the pipeline's tables

    def profile_update(self, meter_id, profile_id, error):
        profile = self.find_profile_byid(profile_id)
        meter = self.find_meter(meter_id)
        if profile is None or meter is None:
            self.log(ERR, "vask_p4_meter_profile_update",
                     f"input meter profile id or meter id err, meter is {s32(meter_id)}, "
                     f"profile id {s32(profile_id)}")
            return self.fail(error, E_PROFILE, "input meter profile id or meter id err")
        return self.update_profile_2_hw(profile, meter)

    def update_profile_2_hw(self, profile, meter):
        name = "vask_p4_meter_update_profile_2_hw"
        old_id = meter.profile.profile_id
        meter.off_hw_state = 1
        meter.take(profile)
        if meter.dir in (0, 3):
            code = self.write_isch(profile.cir, profile.packet_mode)
            if code:
                self.log(ERR, name, f"add meter dpe shaper failed, rc = {code}")
                return code
            self.log(ERR, name, "update meter dpe shaper rate(100kbps) suc")
        if meter.dir in (1, 3):
            code = self.send_shaper(
                self.port_shaper(meter.port_sfi, profile.cir, profile.packet_mode, 0))
            if code:
                self.log(ERR, name, f"update meter shaper failed, rc = {code}")
                return code
        self.lock("P")
        profile.ref_cnt = profile.ref_cnt + 1 & U32
        old = self.find_profile_byid(old_id)
        if old is not None:
            old.ref_cnt = old.ref_cnt - 1 & U32
            self.log(INFO, name,
                     f"meter update old profile_id {s32(old.profile_id)} ref {s32(old.ref_cnt)}, "
                     f"new profile_id {s32(profile.profile_id)} ref {s32(profile.ref_cnt)}")
        self.unlock()
        meter.off_hw_state = 2
        return 0

    def cfg_2_pol(self, profile, meter, meter_id):
        name = "vask_p4_update_meter_cfg_2_pol"
        channel = self.channel()
        table = pipeline_profile(profile)
        code = self.call("qorn_meter_profile_update", f"{channel},{profile.profile_id},{table}")
        if code:
            self.log(ERR, name, f"update meter cfg qorn failed, rc = {code}")
            return -1
        meter.table = table
        table = pipeline_meter(profile.profile_id)
        code = self.call("qorn_meter_table_update", f"{channel},{meter_id},{table}")
        if code:
            self.log(ERR, name, f"update meter instance qorn failed, rc = {code}")
            return -1
        meter.table_inst = table
        return 0

    def del_2_pol(self, meter_id):
        name = "vask_p4_del_meter_cfg_2_pol"
        channel = self.channel()
        for table, what in (("qorn_meter_profile_delete", "cfg"), ("qorn_meter_table_delete", "instance")):
            code = self.call(table, f"{channel},{meter_id}")
            if code:
                self.log(ERR, name, f"del meter {what} qorn failed, rc = {code}")
                return -1
        return 0
