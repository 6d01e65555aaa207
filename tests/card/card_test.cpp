/* SPDX-License-Identifier: BSD-3-Clause */
#include "card_test.h"
#include "keep_cpus.h"

#include <cstdlib>
#include <string>

#include <unistd.h>

#include <rte_eal.h>
#include <rte_ether.h>
#include <rte_ip.h>

#include "softcard_internal.h"

namespace
{

rte_mempool *pool;
thread_local rte_mempool *own_pool;

class Eal : public ::testing::Environment
{
      public:
	void SetUp() override
	{
		std::vector<std::string> args = {"card_test", "--no-huge", "--no-pci",
			"--no-telemetry", "-m", "128", "--log-level", "error", "--file-prefix",
			"card_test_" + std::to_string(getpid())};
		std::vector<char *> argv;
		for (auto &arg : args)
			argv.push_back(arg.data());
		argv.push_back(nullptr);

		const vask_test::KeepCpus keep;
		ASSERT_GE(rte_eal_init(args.size(), argv.data()), 0);
		pool = rte_pktmbuf_pool_create(
			"card_test", 4096, 0, 0, 2048 + RTE_PKTMBUF_HEADROOM, SOCKET_ID_ANY);
		ASSERT_NE(pool, nullptr);
	}

	void TearDown() override
	{
		rte_mempool_free(pool);
		rte_eal_cleanup();
	}
};

const auto *const eal = ::testing::AddGlobalTestEnvironment(new Eal);

} // namespace

rte_mempool *
Pool()
{
	return pool;
}

void
UsePool(rte_mempool *own)
{
	own_pool = own;
}

unsigned
InUse()
{
	return rte_mempool_in_use_count(pool);
}

void
CardTest::SetUp()
{
	in_use_before = InUse();
	ASSERT_EQ(softcard_start(), 0);
	if (getenv("VASK_CARD_SHARED") != nullptr)
		for (softcard_engine &engine : softcard->engines)
			engine.guard.shared = true;
}

void
CardTest::TearDown()
{
	softcard_stop();
	EXPECT_EQ(InUse(), in_use_before) << "buffers lost";
}

vask_p4_mep_meter_profile_table
ProfileRecord(const Profile &profile)
{
	vask_p4_mep_meter_profile_table record = {};
	record.cir = profile.cir;
	record.cbs = profile.cbs;
	record.eir = profile.eir;
	record.ebs = profile.ebs;
	record.pm = profile.packet_mode;
	record.rfc2698 = profile.rfc2698;
	record.valid = 1;
	return record;
}

vask_p4_mep_meter_policy_table
PolicyRecord(std::array<uint32_t, 3> action, std::array<uint32_t, 3> dscp)
{
	vask_p4_mep_meter_policy_table record = {};
	record.green_action = action[0];
	record.yellow_action = action[1];
	record.red_action = action[2];
	record.green_dscp = dscp[0];
	record.yellow_dscp = dscp[1];
	record.red_dscp = dscp[2];
	record.valid = 1;
	return record;
}

vask_p4_mep_meter_policy_table
DropRed()
{
	return PolicyRecord({0, 0, 2});
}

vask_p4_mep_meter_inst_table
InstRecord(uint32_t profile_id, uint32_t policy_id)
{
	vask_p4_mep_meter_inst_table record = {};
	record.valid = 1;
	record.profile_id = profile_id;
	record.policy_id = policy_id;
	return record;
}

void
MakeMeter(int dir, uint32_t meter, const Profile &profile,
	const vask_p4_mep_meter_policy_table &policy, bool color_aware)
{
	const vask_p4_mep_meter_profile_table record = ProfileRecord(profile);
	vask_p4_mep_meter_inst_table inst = InstRecord(1, 1);

	inst.is_color_aware = color_aware;
	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &record), 0);
	ASSERT_EQ(vask_p4_mep_add_meter_policy(RX, 1, &policy), 0);
	ASSERT_EQ(softcard_meter_inst_write(dir, meter, &inst), 0);
}

softcard_meter_view
View(int dir, uint32_t meter)
{
	softcard_meter_view view;
	EXPECT_EQ(softcard_view_meter(dir, meter, &view), 0);
	return view;
}

rte_mbuf *
MakeFrame(const std::vector<uint8_t> &bytes)
{
	rte_mbuf *frame = rte_pktmbuf_alloc(own_pool ? own_pool : pool);
	char *data = rte_pktmbuf_append(frame, bytes.size());
	if (!bytes.empty())
		memcpy(data, bytes.data(), bytes.size());
	return frame;
}

rte_mbuf *
MakeIpv4(uint32_t length, uint8_t tos)
{
	return MakeFrame(Ipv4Bytes(length, tos));
}

std::vector<uint8_t>
Ipv4Bytes(uint32_t length, uint8_t tos, const std::vector<uint16_t> &tpids, uint32_t option_bytes)
{
	std::vector<uint8_t> frame(length);
	size_t at = 2 * RTE_ETHER_ADDR_LEN;
	const auto put16 = [&](uint16_t value) {
		frame.at(at) = value >> 8;
		frame.at(at + 1) = value;
		at += 2;
	};

	for (size_t i = 0; i < at; i++)
		frame[i] = 0x10 + i;
	for (uint16_t tpid : tpids) {
		put16(tpid);
		put16(0x0064);
	}
	put16(RTE_ETHER_TYPE_IPV4);

	rte_ipv4_hdr header = {};
	const uint32_t header_bytes = sizeof(header) + option_bytes;
	header.version_ihl = 0x40 | header_bytes / 4;
	header.type_of_service = tos;
	header.total_length = rte_cpu_to_be_16(length - at);
	header.time_to_live = 64;
	header.next_proto_id = 17;
	header.src_addr = rte_cpu_to_be_32(0x0a000001);
	header.dst_addr = rte_cpu_to_be_32(0x0a000002);
	memcpy(&frame.at(at), &header, sizeof(header));
	for (uint32_t i = 0; i < option_bytes; i++)
		frame.at(at + sizeof(header) + i) = 1; /* no operation */

	const uint16_t sum = ~rte_raw_cksum(&frame.at(at), header_bytes);
	memcpy(&frame.at(at + offsetof(rte_ipv4_hdr, hdr_checksum)), &sum, sizeof(sum));
	return frame;
}

std::vector<uint8_t>
BytesOf(const rte_mbuf *frame)
{
	std::vector<uint8_t> bytes;
	for (; frame != nullptr; frame = frame->next) {
		const uint8_t *data = rte_pktmbuf_mtod(frame, const uint8_t *);
		bytes.insert(bytes.end(), data, data + rte_pktmbuf_data_len(frame));
	}
	return bytes;
}

softcard_burst
Burst(uint32_t meter, uint64_t now_ns, const std::vector<rte_mbuf *> &pkts)
{
	softcard_burst burst = {};
	burst.n = pkts.size();
	for (size_t i = 0; i < pkts.size(); i++) {
		burst.pkts[i] = pkts[i];
		burst.now_ns[i] = now_ns;
		burst.hw_meter_id[i] = meter;
	}
	return burst;
}

void
Free(softcard_burst &burst)
{
	rte_pktmbuf_free_bulk(burst.pkts, burst.n);
	burst.n = 0;
}
