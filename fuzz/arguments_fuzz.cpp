/* SPDX-License-Identifier: BSD-3-Clause */
/* Device arguments of any text, and the faults that they, telemetry and applications give as text. */

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <sys/types.h>

#include <rte_log.h>

#include "check.h"
#include "input.h"
#include "softcard_fault.h"
#include "vask_args.h"
#include "vask_p4_log.h"

namespace
{

unsigned log_lines;

ssize_t
CountLine(void *, const char *text, size_t length)
{
	FUZZ_CHECK(length > 0 && text[length - 1] == '\n');
	FUZZ_CHECK(strncmp(text, "[offload_smartnic]", 18) == 0);
	log_lines++;
	return static_cast<ssize_t>(length);
}

/* Whether a value stands in the text as a whole: it ends where the text or the argument does. */
bool
IsWhole(const std::string &text, const std::string &value)
{
	for (size_t at = text.find(value); at != std::string::npos; at = text.find(value, at + 1))
		if (at + value.size() == text.size() || text[at + value.size()] == ',')
			return true;
	return false;
}

/* The arguments written out in full. */
std::string
TextOf(const vask_args &args)
{
	std::string text = std::string("clock=") +
		(args.clock == vask_clock_source::CAPTURE ? "capture" : "tsc") +
		",tick=" + (args.tick == vask_tick::NS ? "ns" : "us") +
		",shapers=" + (args.shapers == vask_shapers::ENFORCE ? "enforce" : "observe");

	if (args.uplink[0] != '\0')
		text += std::string(",uplink=") + args.uplink;
	if (args.sfi != VASK_SFI_ANY)
		text += ",sfi=" + std::to_string(args.sfi);
	for (unsigned i = 0; i < args.n_faults; i++)
		text += std::string(",fault=") + args.faults[i];
	if (args.trace[0] != '\0')
		text += std::string(",trace=") + args.trace;
	return text;
}

/* Sets a fault; one that is accepted reads the same when it is written out, one that is refused says why. */
void
Fault(const std::string &text, size_t why_size)
{
	std::unique_ptr<char[]> why(new char[why_size]);
	softcard_fault before[SOFTCARD_FAULTS], after[SOFTCARD_FAULTS];
	const uint32_t n = softcard_fault_list(before, SOFTCARD_FAULTS);

	memset(why.get(), 'x', why_size);
	const int rc = softcard_fault_parse(text.c_str(), why.get(), why_size);
	if (rc != 0) {
		/* what returns nothing can be delayed, but not fail */
		const bool returns_nothing = text.rfind("vask_p4_indexstack_destroy:", 0) == 0;

		FUZZ_CHECK(rc == -EINVAL || rc == -ENOENT || (rc == -ENOTSUP && returns_nothing) ||
			(rc == -ENOSPC && n == SOFTCARD_FAULTS));
		FUZZ_CHECK(memchr(why.get(), '\0', why_size) != nullptr);
		FUZZ_CHECK(why_size < 2 || why[0] != '\0');
		FUZZ_CHECK(softcard_fault_list(after, SOFTCARD_FAULTS) == n);
		return;
	}
	FUZZ_CHECK(softcard_fault_list(after, SOFTCARD_FAULTS) == n + 1);
	const softcard_fault &set = after[n];
	FUZZ_CHECK(set.code != SOFTCARD_FAULT_DELAY_ONLY || set.delay_us != 0);
	FUZZ_CHECK(set.calls == 0 && set.hits == 0);

	const std::string again = std::string(set.operation) + ":" +
		(set.nth == SOFTCARD_FAULT_EVERY ? "every" : std::to_string(set.nth)) + ":" +
		std::to_string(set.code) + ":" + std::to_string(set.delay_us);
	if (n + 1 == SOFTCARD_FAULTS)
		return;
	FUZZ_CHECK(softcard_fault_parse(again.c_str(), why.get(), why_size) == 0);
	FUZZ_CHECK(softcard_fault_list(after, SOFTCARD_FAULTS) == n + 2);
	FUZZ_CHECK(after[n + 1].operation == set.operation && after[n + 1].nth == set.nth);
	FUZZ_CHECK(after[n + 1].code == set.code && after[n + 1].delay_us == set.delay_us);
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	cookie_io_functions_t functions = {};

	functions.write = CountLine;
	rte_openlog_stream(fopencookie(nullptr, "w", functions));
	rte_log_set_level(vask_p4_logtype, RTE_LOG_ERR);
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	Input in(data, size);
	const size_t why_size = 1 + in.Byte();
	/* as an application's string ends */
	const std::string all = in.Text(), text = all.substr(0, all.find('\0'));
	/* on the heap, so that a sanitizer sees its ends */
	const auto args = std::make_unique<vask_args>(), again = std::make_unique<vask_args>();

	memset(args.get(), 0xa5, sizeof(*args));
	log_lines = 0;
	const int rc = vask_args_parse("net_vask1_0", text.c_str(), args.get());
	FUZZ_CHECK(rc == 0 || rc == -EINVAL);
	FUZZ_CHECK(log_lines == (rc == 0 ? 0 : 1));
	if (rc == 0) {
		FUZZ_CHECK(memchr(args->uplink, '\0', sizeof(args->uplink)) != nullptr);
		FUZZ_CHECK(memchr(args->trace, '\0', sizeof(args->trace)) != nullptr);
		FUZZ_CHECK(strcmp(args->uplink, "net_vask1_0") != 0);
		FUZZ_CHECK(args->sfi <= VASK_SFI_MAX || args->sfi == VASK_SFI_ANY);
		FUZZ_CHECK(args->n_faults <= VASK_FAULT_ARGS_MAX);

		const std::string canonical = TextOf(*args);
		const int again_rc = vask_args_parse("net_vask1_0", canonical.c_str(), again.get());
		/* a list that is left open takes what comes after it too */
		FUZZ_CHECK((again_rc == 0 && TextOf(*again) == canonical) ||
			text.find('[') != std::string::npos);
		FUZZ_CHECK(IsWhole(text, args->uplink) && IsWhole(text, args->trace));
		for (unsigned i = 0; i < args->n_faults; i++) {
			FUZZ_CHECK(IsWhole(text, args->faults[i]));
			Fault(args->faults[i], why_size);
		}
	}
	Fault(text, why_size);
	softcard_fault_clear();
	return 0;
}
