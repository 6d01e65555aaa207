"""Meter policies: validation, conversion, lifecycle, the default policy."""

from card import DEBUG, ERR, INFO
from profiles import E_UNSPEC, OWN_MESSAGE
from records import Policy, engine_policy, hex32, s32

E_POLICY_ID, E_POLICY = 13, 14
COLOURS = ("green", "yellow", "red")
ACTION_NAMES = {"D": "drop", "S": "dscp4", "N": "dscp4", "6": "dscp6", "V": "void", "Q": "queue"}
DROP_RED = [[], [], [["D"]]]


class Policies:

    def find_policy(self, policy_id):
        """The first such node, silently."""
        for node in self.policies:
            if node.policy_id == policy_id:
                return node
        return None

    def find_policy_byid(self, policy_id):
        node = self.find_policy(policy_id)
        if node is not None:
            self.log(DEBUG, "vask_p4_find_meter_policy_byid",
                     f"add meter find policy, id is {s32(policy_id)}")
        return node

    def get_policy(self, policy_id):
        node = self.find_policy(policy_id)
        if node is not None:
            self.log(INFO, "vask_p4_meter_get_policy",
                     f"meter get policy {policy_id} ok. r_act:{s32(node.red_action)},"
                     f"y_act:{s32(node.yellow_action)},g_act:{s32(node.green_action)}")
        return node

    def action_number(self, action):
        return action[1] if action[0] == "T" else self.numbers[ACTION_NAMES[action[0]]]

    def unsupported(self, name, action, error):
        self.log(ERR, name, f"action type {s32(self.action_number(action))} is not support")
        return self.fail(error, E_POLICY, "action type is not support")

    def policy_validate(self, policy, error):
        if policy is None:
            return self.fail(error, E_UNSPEC, OWN_MESSAGE)
        for actions in policy:
            for place, action in enumerate(actions or ()):
                if place == 2:
                    return self.fail(error, E_POLICY, "meter action is too much")
                if action[0] not in "DSN" and self.action_number(action) not in self.known_actions:
                    return self.unsupported("vask_p4_meter_policy_validate", action, error)
        return 0

    def convert_policy(self, engine, index, node):
        name = "vask_p4_meter_convert_policy"
        image = engine_policy(node)
        self.log(DEBUG, name, f"meter policy convert policy red_action {image & 3},")
        code = self.call("vask_p4_mep_add_meter_policy", f"{engine},{index & 0xFFFFFFFF},{hex32(image)}")
        if code:
            self.log(ERR, name, f"meter add policy lmem or reg failed, rc = {code}")
            return -1
        node.policy = hex32(image)
        return 0

    def add_policy_2_hw(self, node):
        name = "vask_p4_meter_add_policy_2_hw"
        if not node.hw_policy_id:
            self.lock("Q")
            code, index = self.pool_alloc(2) if node.policy_id else (0, 255)
            if code:
                self.log(ERR, name, f"meter get policy id failed, rc = {code}")
                self.unlock()
                return -1
            self.unlock()
            node.hw_policy_id = index
        code = self.convert_policy(0, node.hw_policy_id, node)
        if code:
            self.log(ERR, name, f"imep meter add policy mep failed, rc = {code}")
        return code

    def del_policy_2_hw(self, node):
        for engine, side in ((0, "imep"), (1, "emep")):
            code = self.call("vask_p4_mep_del_meter_policy", f"{engine},{node.hw_policy_id}")
            if code:
                self.log(ERR, "vask_p4_meter_del_policy_2_hw",
                         f"{side} meter del policy mep failed, rc = {code}")
                return code
        self.lock("Q")
        self.pool_free(2, node.hw_policy_id)
        self.unlock()
        node.clear()
        return 0

    def policy_add(self, policy_id, policy, error):
        name = "vask_p4_meter_policy_add"
        if policy is None:
            return self.fail(error, E_UNSPEC, OWN_MESSAGE)
        if self.policy_validate(policy, error):
            return self.fail(error, E_POLICY, "validate policy action error")
        if not self.calloc("Q"):
            return self.fail(error, E_UNSPEC, "Cannot allocate memory for meter policy")
        node = Policy()
        node.policy_id = policy_id
        for colour, actions in zip(COLOURS, policy):
            for action in actions or ():
                if action[0] == "D" or self.action_number(action) == self.numbers["drop"]:
                    setattr(node, colour + "_action", 2)
                elif action[0] == "S":
                    setattr(node, colour + "_dscp", action[1])
                    setattr(node, colour + "_action", 1)
                else:  # validation let a rewrite without its value pass
                    self.free("Q")
                    return self.unsupported(name, action, error)
        if self.find_policy(policy_id) is not None:
            self.log(ERR, name, f"input meter policy id is existid is {s32(policy_id)}")
            self.free("Q")
            return self.fail(error, E_POLICY_ID, "input meter policy id is exist")
        if self.add_policy_2_hw(node):
            self.free("Q")
            return self.fail(error, E_POLICY, "meter policy offload hw not success")
        self.policies.append(node)
        self.log(INFO, name, f"[policy]: add meter policy {s32(policy_id)}{self.policy_tail(node)}")
        return 0

    @staticmethod
    def policy_tail(node):
        red = int(node.policy[:2], 16) | int(node.policy[2:4], 16) << 8
        return (f" to hw policy {s32(node.hw_policy_id)}, red_action {red & 3} "
                f"red_dscp {red >> 6 & 63}")

    def policy_delete(self, policy_id, error):
        name = "vask_p4_meter_policy_delete"
        node = self.find_policy(policy_id)
        if node is None:
            self.log(INFO, name, f"del meter policy id not found, id is {s32(policy_id)}")
            return 0
        self.lock("Q")
        if node.ref_cnt:
            self.log(ERR, name, f"del meter policy ref cnt: {s32(node.ref_cnt)} not 0")
            self.unlock()
            return self.fail(error, E_POLICY, "meter policy reference not 0!")
        self.unlock()
        code = self.del_policy_2_hw(node)
        if code:
            self.log(ERR, name, f"del meter policy id failed, rc is {code}")
            return self.fail(error, E_POLICY, "del meter policy id failed")
        self.log(INFO, name, f"del meter policy id suc, id is {s32(policy_id)}")
        self.policies.remove(node)
        self.free("Q")
        return 0

    def policy_ref_dec(self, policy_id):
        name = "vask_p4_meter_policy_ref_dec"
        node = self.find_policy(policy_id)
        if node is None:
            return 0
        self.lock("Q")
        if node.ref_cnt:
            node.ref_cnt -= 1
            self.log(INFO, name, f"dec meter policy ref cnt: {s32(node.ref_cnt)}")
        else:
            self.log(ERR, name, "dec meter policy ref cnt 0 err")
        self.unlock()
        return 0

    def add_default_policy(self, policy_id):
        self.policy_add(policy_id, DROP_RED, [])
