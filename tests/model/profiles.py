"""Meter profiles: conversion, classification, lifecycle, and what a rate makes of the shapers."""

from card import DEBUG, ERR, INFO, WARNING
from records import Profile, U32, U64, alt_hex, engine_profile, s32, word

RFC2697, RFC2698, RFC4115 = 1, 2, 3
E_UNSPEC, E_PROFILE_ID, E_PROFILE = 1, 2, 3
OWN_MESSAGE = "*"  # the module's own choice of words: any, but not none


class Profiles:

    def find_profile(self, profile_id):
        """The first such node, silently."""
        for node in self.profiles:
            if node.profile_id == profile_id:
                return node
        return None

    def find_profile_byid(self, profile_id):
        node = self.find_profile(profile_id)
        if node is not None:
            self.log(DEBUG, "vask_p4_find_meter_profile_byid",
                     f"add meter find profile, id is {s32(profile_id)}")
        return node

    def profile_convert(self, record, profile):
        alg, packet_mode, w1, w2, w3, w4 = profile
        record.packet_mode = packet_mode & U32
        if alg == RFC2697:  # cir, cbs, ebs
            record.cir, record.cbs, record.ebs, record.rfc2698_mode = w1, w2, w3, 0
            return 0
        if alg == RFC2698:  # cir, pir, cbs, pbs
            record.cir, record.eir, record.cbs, record.ebs, record.rfc2698_mode = w1, w2, w3, w4, 1
            return 0 if w2 >= w1 else -1
        if alg == RFC4115:  # cir, eir, cbs, ebs
            record.cir, record.eir, record.cbs, record.ebs, record.rfc2698_mode = w1, w2, w3, w4, 0
            return 0
        return -1

    @staticmethod
    def profile_type(record):
        if record is None:
            return -1
        if not record.eir and not record.rfc2698_mode:
            return RFC2697
        if record.eir and record.rfc2698_mode == 1:
            return RFC2698
        if record.eir and record.rfc2698_mode:
            return RFC4115
        return 0

    def profile_cmp(self, record, profile):
        alg, packet_mode, w1, w2, w3, w4 = profile
        kind = self.profile_type(record)
        if kind != alg or record.packet_mode != packet_mode & U32:
            return 0
        if kind == RFC2697:
            return int((record.cbs, record.cir, record.ebs) == (w2, w1, w3))
        if kind in (RFC2698, RFC4115):
            return int((record.cbs, record.cir, record.ebs, record.eir) == (w3, w1, w4, w2))
        return 0

    def convert_profile(self, engine, index, node):
        pm = node.packet_mode & 1
        if node.packet_mode:
            ebs, cbs, eir, cir = node.ebs, node.cbs, node.eir, node.cir
        else:
            ebs, cbs, eir, cir = node.ebs >> 10, node.cbs >> 10, node.eir // 8000, node.cir // 8000
        cir &= 0x3FFFFFF
        image = engine_profile(ebs & 0xFFFFF, cbs & 0xFFFFF, eir & 0x3FFFFFF, cir, pm,
                               node.rfc2698_mode & 1)
        name = "vask_p4_meter_convert_profile"
        self.log(DEBUG, name,
                 f"meter profile convert fwd policy input cir {node.cir}, convert cir {cir}")
        code = self.call("vask_p4_mep_add_meter_profile", f"{engine},{index & U32},{image}")
        if code:
            self.log(ERR, name, f"meter add fwd profile lmem failed, rc = {code}")
            return -1
        node.profile = image
        return 0

    def add_profile_2_hw(self, node):
        name = "vask_p4_meter_add_profile_2_hw"
        if not node.hw_profile_id:
            self.lock("P")
            code, index = self.pool_alloc(1)
            if code:
                self.log(ERR, name, f"meter get profile id failed, rc = {code}")
                self.unlock()
                return -1
            self.unlock()
            node.hw_profile_id = index
        code = self.convert_profile(0, node.hw_profile_id, node)
        if code:
            self.log(ERR, name, f"imep meter add profile mep failed, rc = {code}")
        return code

    def del_profile_2_hw(self, node):
        for engine, side in ((0, "imep"), (1, "emep")):
            code = self.call("vask_p4_mep_del_meter_profile", f"{engine},{node.hw_profile_id}")
            if code:
                self.log(ERR, "vask_p4_meter_del_profile_2_hw",
                         f"{side} meter del profile mep failed, rc = {code}")
                return code
        self.lock("P")
        self.pool_free(1, node.hw_profile_id)
        self.unlock()
        node.clear()
        return 0

    def profile_add(self, profile_id, profile, error):
        name = "vask_p4_meter_profile_add"
        if profile is None:
            return self.fail(error, E_UNSPEC, OWN_MESSAGE)
        alg, packet_mode, w1, w2, w3, w4 = profile
        self.log(DEBUG, name, "\n* meter profile input params dump :")
        self.dump_line(f"      meter_profile_id\t: {alt_hex(profile_id)}")
        self.dump_line(f"      packet_mode\t\t\t: {alt_hex(packet_mode)}")
        self.dump_line(f"      alg\t\t\t\t\t: {alt_hex(alg)}")
        self.dump_line(f"      cir\t\t\t\t\t: {w1}")
        self.dump_line(f"      eir\t\t\t\t\t: {w2}")
        self.dump_line(f"      cbs\t\t\t\t\t: {w3}")
        self.dump_line(f"      ebs\t\t\t\t\t: {w4}")
        self.log(DEBUG, name, "* over......")
        if self.find_profile(profile_id) is not None:
            self.log(ERR, name, f"input meter profile id is exist, id is {s32(profile_id)}")
            return self.fail(error, E_PROFILE_ID, "input meter profile id is exist")
        if not self.calloc("P"):
            return self.fail(error, E_UNSPEC, "Cannot allocate memory for meter profile")
        node = Profile()
        if self.profile_convert(node, profile):
            self.free("P")
            return self.fail(error, E_PROFILE, "meter profile protocol is not supported")
        node.off_hw_state = 1
        node.profile_id = profile_id
        if self.add_profile_2_hw(node):
            self.free("P")
            return self.fail(error, E_PROFILE, "meter profile offload hw not success")
        node.off_hw_state = 2
        self.profiles.append(node)
        self.log_profile_added(name, node)
        return 0

    def log_profile_added(self, name, node):
        self.log(WARNING, name,
                 f"[profile]: add meter profile {s32(node.profile_id)} to hw profile "
                 f"{s32(node.hw_profile_id)}, cir {node.cir} cbs {node.cbs}")

    def profile_delete(self, profile_id, error):
        name = "vask_p4_meter_profile_delete"
        node = self.find_profile(profile_id)
        if node is None:
            self.log(INFO, name, f"del meter profile id not found, id is {s32(profile_id)}")
            return 0
        self.lock("P")
        if node.ref_cnt:
            self.log(ERR, name, f"del meter profile ref cnt: {s32(node.ref_cnt)} not 0")
            self.unlock()
            return self.fail(error, E_PROFILE, "meter profile reference not 0!")
        self.unlock()
        code = self.del_profile_2_hw(node)
        if code:
            self.log(ERR, name, f"del meter profile id failed, rc is {code}")
            return self.fail(error, E_PROFILE, "del meter profile id failed")
        self.log(INFO, name, f"del meter profile id suc, id is {s32(profile_id)}")
        self.profiles.remove(node)
        self.free("P")
        return 0

    def profile_ref_dec(self, profile_id):
        name = "vask_p4_meter_profile_ref_dec"
        node = self.find_profile(profile_id)
        if node is None:
            return 0
        self.lock("P")
        if node.ref_cnt:
            node.ref_cnt -= 1
            self.log(INFO, name, f"del meter profile ref cnt: {s32(node.ref_cnt)}")
        else:
            self.log(ERR, name, "del meter profile ref cnt 0 err")
        self.unlock()
        return 0

    # A committed rate as shaper settings. Records come and go as numbers.

    def port_shaper(self, sfi, cir, pm, record):
        rate = ((cir * 8 & U64) // 1000) & U32
        keep = record & (0xFFFF << 16 | 0xFFFF << 48)
        self.log(DEBUG, "vask_p4_meter_add_convert_shaper",
                 f"add convert shaper meter sfi {s32(sfi)} pm {s32(pm)}, rate {rate} (kbps).")
        return keep | sfi & 0xFFFF | (pm & 0xFFFF) << 32 | 1 << 48 | rate << 64

    def isch_shaper(self, cir, pm, record):
        rate = (((cir * 108 & U64) // 100 * 8 & U64) // 100000) & U32
        self.log(DEBUG, "vask_p4_meter_add_convert_isch_shaper",
                 f"add convert isch shaper meter pm {s32(pm)}, rate {cir & U32} -> {rate} (100kbps).")
        keep = record & (1 << 1 | 3 << 30)
        return keep | 1 | (pm & 1) << 2 | 1 << 3 | (rate & 0x7FFFF) << 11

    def port_unshaper(self, sfi, pm, record):
        keep = record & ~(0xFFFF | 0xFFFF << 32)
        self.log(DEBUG, "vask_p4_meter_del_convert_shaper",
                 f"del convert shaper meter sfi {s32(sfi)} pm {s32(pm)}.")
        return keep | sfi & 0xFFFF | (pm & 0xFFFF) << 32 | 1 << 48

    def shaper_from(self, convert, text, *arguments):
        """A conversion on a record given and returned in memory hex."""
        size = len(text) // 2
        return convert(*arguments, word(text)).to_bytes(size, "little").hex()
