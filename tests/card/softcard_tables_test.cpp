/* SPDX-License-Identifier: BSD-3-Clause */

/* The lower-layer operations: what each stores, clears and refuses, and with which code. */

#include <cerrno>
#include <cstring>

#include "card_test.h"
#include "qorn_hal_user_api.h"
#include "vask_dev_cmds.h"
#include "vask_p4_meter.h"

namespace
{

class Tables : public CardTest
{
      protected:
	vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
};

vask_p4_mep_meter_profile_table
ProfileAt(int dir, uint32_t index)
{
	vask_p4_mep_meter_profile_table profile;
	EXPECT_EQ(softcard_view_profile(dir, index, &profile), 0);
	return profile;
}

uint32_t
PolicyAt(int dir, uint32_t index)
{
	vask_p4_mep_meter_policy_table policy;
	uint32_t word;
	EXPECT_EQ(softcard_view_policy(dir, index, &policy), 0);
	memcpy(&word, &policy, sizeof(word));
	return word;
}

softcard_port_view
PortAt(uint16_t sfi)
{
	softcard_port_view port;
	EXPECT_EQ(softcard_view_port(sfi, &port), 0);
	return port;
}

template <typename Record>
std::string
Image(const Record &record)
{
	return std::string(reinterpret_cast<const char *>(&record), sizeof(record));
}

TEST_F(Tables, StartOfACardThatIsUpIsRefused)
{
	EXPECT_EQ(softcard_start(), -EALREADY);
}

TEST(TablesOfACardThatIsDown, RefuseEverything)
{
	const vask_p4_mep_meter_profile_table profile = {};
	const vask_p4_mep_meter_policy_table policy = {};
	const qorn_meter_profile_table pipeline_profile = {};
	const qorn_meter_table pipeline_meter = {};
	const qorn_input_port_table_key_tx key = {};
	const vask_shaper_set_info shaper = {};
	qorn_input_port_table_result_tx result = {};
	vask_p4_mep_meter_inst_table inst = {};
	const uint32_t index = 1;
	vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();

	EXPECT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &profile), -ENODEV);
	EXPECT_EQ(vask_p4_mep_del_meter_profile(RX, 1), -ENODEV);
	EXPECT_EQ(vask_p4_mep_add_meter_policy(RX, 1, &policy), -ENODEV);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 1), -ENODEV);
	EXPECT_EQ(vask_p4_mep_read_meter_inst(RX, 1, &inst), -ENODEV);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_meterid(RX, 1, 1), -ENODEV);
	EXPECT_EQ(vask_p4_mep_del_meter_output_by_meterid(RX, 1), -ENODEV);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_mtu(1, 1500), -ENODEV);
	EXPECT_EQ(
		qorn_meter_profile_update(channel, &index, &pipeline_profile), QORN_ERR_NOT_READY);
	EXPECT_EQ(qorn_meter_profile_delete(channel, index), QORN_ERR_NOT_READY);
	EXPECT_EQ(qorn_meter_table_update(channel, &index, &pipeline_meter), QORN_ERR_NOT_READY);
	EXPECT_EQ(qorn_meter_table_delete(channel, index), QORN_ERR_NOT_READY);
	EXPECT_EQ(qorn_input_port_tx_table_get(channel, &key, &result), QORN_ERR_NOT_READY);
	EXPECT_EQ(qorn_input_port_tx_table_add(channel, &key, &result), QORN_ERR_NOT_READY);
	EXPECT_EQ(vask_cmd_set_shaper(channel, &shaper), -ENODEV);
	EXPECT_EQ(vask_p4_isch_shaper_csr_write({}), -ENODEV);
	EXPECT_EQ(softcard_meter_inst_write(RX, 1, &inst), -ENODEV);
	EXPECT_EQ(softcard_meter_inst_clear(RX, 1), -ENODEV);
	EXPECT_EQ(softcard_port_meter(RX, 1), 0u);
}

TEST_F(Tables, AProfileWrittenToTheIngressEngineIsInBoth)
{
	const auto profile = ProfileRecord({0x3ffffff, 0xfffff, 1, 2, true, true});

	EXPECT_EQ(vask_p4_mep_add_meter_profile(RX, 255, &profile), 0);
	EXPECT_EQ(Image(ProfileAt(RX, 255)), Image(profile));
	EXPECT_EQ(Image(ProfileAt(TX, 255)), Image(profile));
	EXPECT_FALSE(ProfileAt(RX, 254).valid);
}

TEST_F(Tables, AProfileWrittenToTheEgressEngineIsThereAlone)
{
	const auto profile = ProfileRecord({1, 2, 3, 4});

	EXPECT_EQ(vask_p4_mep_add_meter_profile(TX, 0, &profile), 0);
	EXPECT_FALSE(ProfileAt(RX, 0).valid);
	EXPECT_EQ(Image(ProfileAt(TX, 0)), Image(profile));
}

TEST_F(Tables, AProfileDeletedFromOneEngineStaysInTheOther)
{
	const auto profile = ProfileRecord({1, 2, 3, 4});
	const vask_p4_mep_meter_profile_table none = {};

	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 7, &profile), 0);
	EXPECT_EQ(vask_p4_mep_del_meter_profile(RX, 7), 0);
	EXPECT_EQ(Image(ProfileAt(RX, 7)), Image(none));
	EXPECT_EQ(Image(ProfileAt(TX, 7)), Image(profile));
	EXPECT_EQ(vask_p4_mep_del_meter_profile(TX, 7), 0);
	EXPECT_EQ(Image(ProfileAt(TX, 7)), Image(none));
}

TEST_F(Tables, DeletingWhatWasNeverWrittenSucceeds)
{
	EXPECT_EQ(vask_p4_mep_del_meter_profile(TX, 9), 0);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 9), 0);
	EXPECT_EQ(vask_p4_mep_del_meter_output_by_meterid(RX, 9), 0);
	EXPECT_EQ(qorn_meter_profile_delete(channel, 9), QORN_OK);
	EXPECT_EQ(qorn_meter_table_delete(channel, 9), QORN_OK);
	EXPECT_EQ(softcard_meter_inst_clear(TX, 9), 0);
}

TEST_F(Tables, APolicyWrittenToTheIngressEngineIsInBothAndDeletedFromEachAlone)
{
	const auto policy = PolicyRecord({1, 2, 3}, {10, 20, 30});
	/* red 3, yellow 2 << 2, green 1 << 4, DSCPs 30 << 6, 20 << 12, 10 << 18, valid */
	const uint32_t word = 3 | 2 << 2 | 1 << 4 | 30 << 6 | 20 << 12 | 10 << 18 | 1u << 31;

	EXPECT_EQ(vask_p4_mep_add_meter_policy(RX, 255, &policy), 0);
	EXPECT_EQ(PolicyAt(RX, 255), word);
	EXPECT_EQ(PolicyAt(TX, 255), word);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(RX, 255), 0);
	EXPECT_EQ(PolicyAt(RX, 255), 0u);
	EXPECT_EQ(PolicyAt(TX, 255), word);
	EXPECT_EQ(vask_p4_mep_add_meter_policy(TX, 1, &policy), 0);
	EXPECT_EQ(PolicyAt(RX, 1), 0u);
	EXPECT_EQ(PolicyAt(TX, 1), word);
}

TEST_F(Tables, AnIndexPastAnEngineTableIsRefused)
{
	const auto profile = ProfileRecord({1, 2, 3, 4});
	const auto policy = DropRed();
	auto inst = InstRecord(1, 1);

	EXPECT_EQ(vask_p4_mep_add_meter_profile(RX, 256, &profile), -ERANGE);
	EXPECT_EQ(vask_p4_mep_del_meter_profile(TX, 256), -ERANGE);
	EXPECT_EQ(vask_p4_mep_add_meter_policy(RX, 256, &policy), -ERANGE);
	EXPECT_EQ(vask_p4_mep_del_meter_policy(TX, UINT32_MAX), -ERANGE);
	EXPECT_EQ(vask_p4_mep_read_meter_inst(RX, 4095, &inst), 0);
	EXPECT_EQ(vask_p4_mep_read_meter_inst(RX, 4096, &inst), -ERANGE);
	EXPECT_EQ(softcard_meter_inst_write(RX, 4096, &inst), -ERANGE);
	EXPECT_EQ(softcard_meter_inst_clear(RX, 4096), -ERANGE);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_meterid(RX, 16383, 4095), 0);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_meterid(RX, 16384, 1), -ERANGE);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_meterid(RX, 1, 4096), -ERANGE);
	EXPECT_EQ(vask_p4_mep_del_meter_output_by_meterid(RX, 16384), -ERANGE);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_mtu(16383, 1500), 0);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_mtu(16384, 1500), -ERANGE);
}

TEST_F(Tables, AnUnknownEngineIsRefused)
{
	const auto profile = ProfileRecord({1, 2, 3, 4});
	const auto policy = DropRed();
	auto inst = InstRecord(1, 1);

	for (int dir : {-1, 2, 3}) {
		EXPECT_EQ(vask_p4_mep_add_meter_profile(dir, 1, &profile), -EINVAL);
		EXPECT_EQ(vask_p4_mep_del_meter_profile(dir, 1), -EINVAL);
		EXPECT_EQ(vask_p4_mep_add_meter_policy(dir, 1, &policy), -EINVAL);
		EXPECT_EQ(vask_p4_mep_del_meter_policy(dir, 1), -EINVAL);
		EXPECT_EQ(vask_p4_mep_read_meter_inst(dir, 1, &inst), -EINVAL);
		EXPECT_EQ(vask_p4_mep_update_meter_output_by_meterid(dir, 1, 1), -EINVAL);
		EXPECT_EQ(vask_p4_mep_del_meter_output_by_meterid(dir, 1), -EINVAL);
		EXPECT_EQ(softcard_meter_inst_write(dir, 1, &inst), -EINVAL);
		EXPECT_EQ(softcard_meter_inst_clear(dir, 1), -EINVAL);
		EXPECT_EQ(softcard_port_meter(dir, 1), 0u);
	}
}

TEST_F(Tables, ANullRecordIsRefused)
{
	const qorn_meter_profile_table profile = {};
	const qorn_meter_table meter = {};
	const qorn_input_port_table_key_tx key = {};
	qorn_input_port_table_result_tx result = {};
	const uint32_t index = 1;

	EXPECT_EQ(vask_p4_mep_add_meter_profile(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(vask_p4_mep_add_meter_policy(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(vask_p4_mep_read_meter_inst(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(softcard_meter_inst_write(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(qorn_meter_profile_update(channel, nullptr, &profile), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_meter_profile_update(channel, &index, nullptr), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_meter_table_update(channel, nullptr, &meter), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_meter_table_update(channel, &index, nullptr), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_input_port_tx_table_get(channel, nullptr, &result), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_input_port_tx_table_get(channel, &key, nullptr), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_input_port_tx_table_add(channel, nullptr, &result), QORN_ERR_BAD_PTR);
	EXPECT_EQ(qorn_input_port_tx_table_add(channel, &key, nullptr), QORN_ERR_BAD_PTR);
	EXPECT_EQ(vask_cmd_set_shaper(channel, nullptr), -EINVAL);
}

TEST_F(Tables, AReceivedPacketsMeterIsThePortsOutputATransmittedOnesIsMeteringInfo0)
{
	const qorn_input_port_table_key_tx key = {.source_port = 5, .resv = 0};
	qorn_input_port_table_result_tx entry = {};

	EXPECT_EQ(softcard_port_meter(RX, 5), 0u);
	EXPECT_EQ(softcard_port_meter(TX, 5), 0u);
	ASSERT_EQ(vask_p4_mep_update_meter_output_by_meterid(RX, 5, 9), 0);
	EXPECT_EQ(softcard_port_meter(RX, 5), 9u);
	EXPECT_EQ(softcard_port_meter(TX, 5), 0u);
	entry.metering_info0 = 4095;
	ASSERT_EQ(qorn_input_port_tx_table_add(channel, &key, &entry), QORN_OK);
	EXPECT_EQ(softcard_port_meter(TX, 5), 4095u);

	entry.metering_info0 = 4096; /* 16 bits that name no meter */
	ASSERT_EQ(qorn_input_port_tx_table_add(channel, &key, &entry), QORN_OK);
	EXPECT_EQ(softcard_port_meter(TX, 5), 0u);
	EXPECT_EQ(PortAt(5).tx_meter, 4096u);
	ASSERT_EQ(vask_p4_mep_del_meter_output_by_meterid(RX, 5), 0);
	EXPECT_EQ(softcard_port_meter(RX, 5), 0u);
	EXPECT_EQ(softcard_port_meter(RX, 16384), 0u);
}

TEST_F(Tables, AnOutputOfTheEgressEngineBindsNothing)
{
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_meterid(TX, 5, 9), 0);
	EXPECT_EQ(softcard_port_meter(RX, 5), 0u);
	EXPECT_EQ(softcard_port_meter(TX, 5), 0u);
}

TEST_F(Tables, AnMtuIsKeptForEachPort)
{
	EXPECT_EQ(PortAt(0).mtu, 0u);
	EXPECT_EQ(vask_p4_mep_update_meter_output_by_mtu(0, 16384), 0);
	EXPECT_EQ(PortAt(0).mtu, 16384u);
	EXPECT_EQ(PortAt(1).mtu, 0u);
}

TEST_F(Tables, AStartAfterAStopFindsThemEmpty)
{
	const auto profile = ProfileRecord({1, 2, 3, 4});
	const auto inst = InstRecord(1, 1);

	ASSERT_EQ(vask_p4_mep_add_meter_profile(RX, 1, &profile), 0);
	ASSERT_EQ(softcard_meter_inst_write(RX, 1, &inst), 0);
	ASSERT_EQ(vask_p4_mep_update_meter_output_by_meterid(RX, 5, 9), 0);
	ASSERT_EQ(vask_p4_mep_update_meter_output_by_mtu(5, 1500), 0);
	softcard_stop();
	softcard_stop();
	ASSERT_EQ(softcard_start(), 0);
	EXPECT_FALSE(ProfileAt(RX, 1).valid);
	EXPECT_FALSE(ProfileAt(TX, 1).valid);
	EXPECT_FALSE(View(RX, 1).inst.valid);
	EXPECT_EQ(softcard_port_meter(RX, 5), 0u);
	EXPECT_EQ(PortAt(5).mtu, 0u);
}

TEST_F(Tables, ViewsRefuseWhatTheTablesDoNotHold)
{
	softcard_meter_view meter;
	vask_p4_mep_meter_profile_table profile;
	vask_p4_mep_meter_policy_table policy;
	qorn_meter_profile_table pipeline_profile;
	qorn_meter_table pipeline_meter;
	softcard_port_view port;

	EXPECT_EQ(softcard_view_meter(2, 1, &meter), -EINVAL);
	EXPECT_EQ(softcard_view_meter(RX, 4096, &meter), -ERANGE);
	EXPECT_EQ(softcard_view_meter(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(softcard_view_profile(RX, 256, &profile), -ERANGE);
	EXPECT_EQ(softcard_view_profile(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(softcard_view_policy(RX, 256, &policy), -ERANGE);
	EXPECT_EQ(softcard_view_policy(RX, 1, nullptr), -EINVAL);
	EXPECT_EQ(softcard_view_pipeline_profile(4096, &pipeline_profile), -ERANGE);
	EXPECT_EQ(softcard_view_pipeline_profile(1, nullptr), -EINVAL);
	EXPECT_EQ(softcard_view_pipeline_meter(4096, &pipeline_meter), -ERANGE);
	EXPECT_EQ(softcard_view_pipeline_meter(1, nullptr), -EINVAL);
	EXPECT_EQ(softcard_view_port(16384, &port), -ERANGE);
	EXPECT_EQ(softcard_view_port(1, nullptr), -EINVAL);
}

} // namespace
