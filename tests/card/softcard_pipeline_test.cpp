/* SPDX-License-Identifier: BSD-3-Clause */

/* The pipeline's tables, and the channel that leads to them. */

#include <cerrno>
#include <cstring>

#include "card_test.h"
#include "qorn_hal_user_api.h"
#include "vask_dev_cmds.h"

namespace
{

class Pipeline : public CardTest
{
      protected:
	vask_cmd_channel *channel = vask_p4_get_global_cmd_channel();
};

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

TEST_F(Pipeline, AChannelThatIsNotTheCardsIsRefusedAndNothingIsWritten)
{
	vask_cmd_channel other = {};
	qorn_meter_profile_table profile = {};
	qorn_meter_table meter = {};
	const qorn_input_port_table_key_tx key = {.source_port = 3, .resv = 0};
	qorn_input_port_table_result_tx result = {};
	vask_shaper_set_info shaper = {};
	const uint32_t index = 1;

	profile.valid = 1;
	meter.valid = 1;
	result.metering_info0 = 5;
	shaper.sfi = 3;
	shaper.max_rate = 1000;
	for (vask_cmd_channel *wrong : {static_cast<vask_cmd_channel *>(nullptr), &other}) {
		EXPECT_EQ(qorn_meter_profile_update(wrong, &index, &profile), QORN_ERR_BAD_PTR);
		EXPECT_EQ(qorn_meter_profile_delete(wrong, index), QORN_ERR_BAD_PTR);
		EXPECT_EQ(qorn_meter_table_update(wrong, &index, &meter), QORN_ERR_BAD_PTR);
		EXPECT_EQ(qorn_meter_table_delete(wrong, index), QORN_ERR_BAD_PTR);
		EXPECT_EQ(qorn_input_port_tx_table_get(wrong, &key, &result), QORN_ERR_BAD_PTR);
		EXPECT_EQ(qorn_input_port_tx_table_add(wrong, &key, &result), QORN_ERR_BAD_PTR);
		EXPECT_EQ(vask_cmd_set_shaper(wrong, &shaper), -EINVAL);
	}
	ASSERT_EQ(softcard_view_pipeline_profile(index, &profile), 0);
	EXPECT_FALSE(profile.valid);
	ASSERT_EQ(softcard_view_pipeline_meter(index, &meter), 0);
	EXPECT_FALSE(meter.valid);
	EXPECT_EQ(PortAt(3).tx_meter, 0u);
}

TEST_F(Pipeline, PipelineEntriesAreKeptBitForBitAndCleared)
{
	qorn_meter_profile_table profile, profile_read;
	qorn_meter_table meter, meter_read;
	const uint32_t last = 4095;

	memset(&profile, 0xa5, sizeof(profile));
	memset(&meter, 0x5a, sizeof(meter));
	EXPECT_EQ(qorn_meter_profile_update(channel, &last, &profile), QORN_OK);
	EXPECT_EQ(qorn_meter_table_update(channel, &last, &meter), QORN_OK);
	ASSERT_EQ(softcard_view_pipeline_profile(last, &profile_read), 0);
	ASSERT_EQ(softcard_view_pipeline_meter(last, &meter_read), 0);
	EXPECT_EQ(Image(profile_read), Image(profile));
	EXPECT_EQ(Image(meter_read), Image(meter));

	EXPECT_EQ(qorn_meter_profile_delete(channel, last), QORN_OK);
	EXPECT_EQ(qorn_meter_table_delete(channel, last), QORN_OK);
	ASSERT_EQ(softcard_view_pipeline_profile(last, &profile_read), 0);
	ASSERT_EQ(softcard_view_pipeline_meter(last, &meter_read), 0);
	EXPECT_EQ(Image(profile_read), std::string(16, '\0'));
	EXPECT_EQ(Image(meter_read), std::string(20, '\0'));
}

TEST_F(Pipeline, AnIndexPastThePipelinesTablesIsRefused)
{
	const qorn_meter_profile_table profile = {};
	const qorn_meter_table meter = {};
	const uint32_t past = 4096;

	EXPECT_EQ(qorn_meter_profile_update(channel, &past, &profile), QORN_ERR_OUT_OF_RANGE);
	EXPECT_EQ(qorn_meter_profile_delete(channel, past), QORN_ERR_OUT_OF_RANGE);
	EXPECT_EQ(qorn_meter_table_update(channel, &past, &meter), QORN_ERR_OUT_OF_RANGE);
	EXPECT_EQ(qorn_meter_table_delete(channel, past), QORN_ERR_OUT_OF_RANGE);
}

TEST_F(Pipeline, ATransmitEntryThatWasNeverWrittenReadsAsZeros)
{
	const qorn_input_port_table_key_tx key = {.source_port = 16383, .resv = 0};
	qorn_input_port_table_result_tx result;

	memset(&result, 0xff, sizeof(result));
	EXPECT_EQ(qorn_input_port_tx_table_get(channel, &key, &result), QORN_OK);
	EXPECT_EQ(Image(result), std::string(28, '\0'));
}

TEST_F(Pipeline, ReadModifyWriteOfATransmitEntryKeepsAllOtherFields)
{
	const qorn_input_port_table_key_tx key = {.source_port = 16383, .resv = 0};
	qorn_input_port_table_result_tx before, after;

	memset(&before, 0xc3, sizeof(before));
	ASSERT_EQ(qorn_input_port_tx_table_add(channel, &key, &before), QORN_OK);
	ASSERT_EQ(qorn_input_port_tx_table_get(channel, &key, &after), QORN_OK);
	EXPECT_EQ(Image(after), Image(before));
	after.metering_info0 = 77;
	ASSERT_EQ(qorn_input_port_tx_table_add(channel, &key, &after), QORN_OK);

	const softcard_port_view port = PortAt(16383);
	before.metering_info0 = 77;
	EXPECT_EQ(Image(port.tx_entry), Image(before));
	EXPECT_EQ(port.tx_meter, 77u);
}

} // namespace
