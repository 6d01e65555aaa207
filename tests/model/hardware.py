"""A meter into and out of the card: shapers, port binding, the engine's instance record."""

from card import DEBUG, ERR, INFO
from profiles import E_UNSPEC
from records import hex32, s32, word


class Hardware:

    def write_isch(self, cir, pm):
        value = hex32(self.isch_shaper(cir, pm, 0))
        return self.call("vask_p4_isch_shaper_csr_write", value)

    def send_shaper(self, record):
        channel = self.channel()
        return self.call("vask_cmd_set_shaper", f"{channel},{record.to_bytes(12, 'little').hex()}")

    def add_meter_2_hw(self, node):
        name = "vask_p4_add_meter_cfg_2_hw"
        cir, pm = node.profile.cir, node.profile.packet_mode
        if node.dir in (0, 3):
            code = self.write_isch(cir, pm)
            if code:
                self.log(ERR, name, f"add meter dpe isch shaper failed, rc = {code}")
                return code
            self.log(ERR, name, "add meter dpe shaper rate(100kbps) suc")
        if node.dir in (1, 3):
            code = self.send_shaper(self.port_shaper(node.port_sfi, cir, pm, 0))
            if code:
                self.log(ERR, name, f"add meter shaper failed, rc = {code}")
                return code
            self.log(DEBUG, name, "add meter shaper suc.")
        node.enable = 1
        node.mep_inst = "0" * 64
        return 0

    def del_meter_2_hw(self, node):
        name = "vask_p4_del_meter_cfg_2_hw"
        if node.dir in (0, 3):
            code = self.call("vask_p4_isch_shaper_csr_write", "00000000")
            if code:
                self.log(ERR, name, f"del meter dpe shaper failed, rc = {code}")
                return code
            self.log(DEBUG, name, "del meter dpe shaper suc.")
        if node.dir in (1, 3):
            code = self.send_shaper(self.port_unshaper(node.port_sfi, node.profile.packet_mode, 0))
            if code:
                self.log(ERR, name, f"del meter shaper failed, rc = {code}")
                return code
            self.log(DEBUG, name, "del meter shaper suc.")
        if node.type:
            if node.dir in (0, 3):
                code = self.del_port_to_hw(0, node)
                if code:
                    return code
            node.enable = 0
            self.log(ERR, name, "del meter port suc.")
        self.lock("M")
        self.pool_free(0, node.hw_meter_id)
        self.unlock()
        return 0

    def add_port_to_hw(self, dir_, node, error):
        name = "vask_p4_meter_add_port_to_hw"
        channel = self.channel()
        problem = None
        if dir_ == 1:
            key = hex32(node.port_sfi & 0x3FFF)
            code, entry = self.tx_get(channel, key)
            if code:
                problem = "get input port tx"
            else:
                meter = node.hw_meter_id & 0xFFFF
                self.log(INFO, name, f"meter add: qorn set tx port meter: {meter}")
                if self.tx_add(channel, key, self.with_meter(entry, meter)):
                    problem = "set input port tx"
        elif dir_ == 0:
            if self.call("vask_p4_mep_update_meter_output_by_meterid",
                         f"0,{node.port_sfi},{node.hw_meter_id}"):
                problem = "set input port rx"
        if problem:
            self.log(ERR, name, f"meter add: qorn {problem} failed!")
            return self.fail(error, E_UNSPEC, "internal error")
        self.log(DEBUG, name, f"[meter add port] dir {dir_} set port sfi {s32(node.port_sfi)} success!")
        return 0

    @staticmethod
    def with_meter(entry, meter):
        """A transmit input-port entry with another metering_info0, bits 110..125."""
        value = word(entry) & ~(0xFFFF << 110) | meter << 110
        return value.to_bytes(28, "little").hex()

    def del_port_to_hw(self, dir_, node):
        name = "vask_p4_meter_del_port_to_hw"
        channel = self.channel()
        if dir_ == 1:
            key = hex32(node.port_sfi & 0x3FFF)
            code, entry = self.tx_get(channel, key)
            if code:
                self.log(ERR, name, "meter add: qorn get input port tx failed!")
                return -1
            self.log(INFO, name, f"meter add: qorn get tx port meter: {word(entry) >> 110 & 0xFFFF}")
            if self.tx_add(channel, key, self.with_meter(entry, 0)):
                self.log(ERR, name, "meter add: qorn set input port tx failed!")
                return -1
            return 0
        code = self.call("vask_p4_mep_del_meter_output_by_meterid", f"{dir_},{node.port_sfi}")
        if code:
            self.log(ERR, name, f"del meter bitmap failed, rc = {code}")
            return -1
        return 0

    @staticmethod
    def convert_inst(node, inst):
        """The engine instance record (a number) with the meter's part filled in."""
        def put(record, low, width, value):
            mask = (1 << width) - 1
            return record & ~(mask << low) | (value & mask) << low
        inst = put(inst, 0, 1, node.enable)
        inst = put(inst, 1, 8, node.profile.hw_profile_id)
        inst = put(inst, 9, 8, node.policy.hw_policy_id)
        inst = put(inst, 17, 1, node.is_color_aware)
        inst = put(inst, 18, 1, node.is_ori_pktlen)
        for low, first in ((19, 4), (22, 0)):
            for code in range(4):
                if node.stats_mask >> (first + code) & 1:
                    inst = put(inst, low, 3, code + 1)
                    break
        return inst
