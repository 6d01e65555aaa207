/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * vask-meter's configuration files of any bytes: refused with one line that names the file, or read into a set-up
 * that holds together. The same text is read as a quantity too.
 */
#include <set>

#include <rte_log.h>

#include "card_units.h"
#include "check.h"
#include "config.h"
#include "error.h"
#include "memory_file.h"

namespace
{

/* Ids of a list, each there once. */
template <typename T>
void
CheckIds(const std::vector<T> &list)
{
	std::set<uint32_t> ids;

	for (const T &entry : list)
		FUZZ_CHECK(ids.insert(entry.id).second);
}

void
CheckConfig(const meters_config &config)
{
	CheckIds(config.profiles);
	CheckIds(config.policies);
	CheckIds(config.meters);
	CheckIds(config.flows);
	for (const profile_config &p : config.profiles) {
		const quantity_kind rate =
			p.packet_mode ? quantity_kind::PACKET_RATE : quantity_kind::RATE;

		FUZZ_CHECK(p.algorithm == RTE_MTR_SRTCM_RFC2697 ||
			p.algorithm == RTE_MTR_TRTCM_RFC2698 ||
			p.algorithm == RTE_MTR_TRTCM_RFC4115);
		FUZZ_CHECK(p.algorithm != RTE_MTR_TRTCM_RFC2698 || p.eir >= p.cir);
		FUZZ_CHECK(config.profile(p.id) == &p);
		FUZZ_CHECK(card_engine_effective(rate, p.cir) <= p.cir);
	}
	for (const policy_config &p : config.policies)
		for (const colour_config &colour : p.colours)
			FUZZ_CHECK(colour.action != colour_config::DSCP || colour.dscp < 64);
	for (const meter_config &m : config.meters) {
		FUZZ_CHECK(m.port < config.ports);
		FUZZ_CHECK(config.profile(m.profile) != nullptr);
		/* the default policy needs no section */
		FUZZ_CHECK(m.policy == 0 || config.policy(m.policy) != nullptr);
	}
	for (const flow_config &f : config.flows) {
		FUZZ_CHECK(f.port < config.ports && config.meter(f.meter) != nullptr);
		FUZZ_CHECK(!f.dscp || *f.dscp < 64);
		FUZZ_CHECK(f.family() == 0 || f.family() == AF_INET || f.family() == AF_INET6);
		for (const auto &address : {f.src, f.dst})
			if (address)
				FUZZ_CHECK(address->family == f.family() &&
					address->prefix <= (f.family() == AF_INET ? 32u : 128u));
	}
}

/* One line of refusal. */
void
CheckLine(const vask_meter_error &e, const std::string &begin)
{
	const std::string line = e.what();

	FUZZ_CHECK(e.exit_code == VASK_METER_REFUSED);
	FUZZ_CHECK(line.starts_with(begin) && line.size() > begin.size());
	FUZZ_CHECK(line.find('\n') == std::string::npos);
}

void
CheckQuantity(const std::string &text)
{
	try {
		const quantity q = quantity_parse(text);

		for (const card_field &field : card_fields(q.kind, q.value)) {
			FUZZ_CHECK(field.holds <= field.asked);
			card_field_warning(field);
		}
		FUZZ_CHECK(!format_quantity(q.kind, q.value).empty());
		if (q.kind == quantity_kind::BURST)
			FUZZ_CHECK(quantity_parse(format_bytes(q.value)).value == q.value);
	} catch (const vask_meter_error &e) {
		FUZZ_CHECK(e.exit_code == VASK_METER_REFUSED && *e.what() != '\0');
	}
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	rte_log_set_global_level(RTE_LOG_EMERG);
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const MemoryFile file(data, size);

	try {
		CheckConfig(config_read(file.path()));
	} catch (const vask_meter_error &e) {
		CheckLine(e, file.path() + ":");
	}
	CheckQuantity(std::string(data, data + std::min<size_t>(size, 40)));
	return 0;
}
