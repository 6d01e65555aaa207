/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <rte_string_fns.h>

#include "vask_args.h"
#include "vask_p4_log.h"

namespace
{

/* What a handler needs to know of the device beside the arguments. */
struct parse {
	const char *device;
	struct vask_args *args;
};

int
refuse(const struct parse *p, const char *key, const char *value, const char *accepted)
{
	VASK_P4_LOG(ERR, "%s: %s=%s is refused: %s", p->device, key, value, accepted);
	return -EINVAL;
}

int
parse_uplink(const struct parse *p, const char *key, const char *value)
{
	if (value[0] == '\0' || strlen(value) >= sizeof(p->args->uplink))
		return refuse(p, key, value,
			"the name of an ethdev port of at most 63 characters is accepted");
	if (strcmp(value, p->device) == 0)
		return refuse(p, key, value, "another port's name is accepted");
	rte_strscpy(p->args->uplink, value, sizeof(p->args->uplink));
	return 0;
}

int
parse_sfi(const struct parse *p, const char *key, const char *value)
{
	char *end = nullptr;
	unsigned long sfi;

	errno = 0;
	sfi = strtoul(value, &end, 10);
	if (value[0] < '0' || value[0] > '9' || *end != '\0' || errno != 0 || sfi > VASK_SFI_MAX)
		return refuse(p, key, value, "a number from 0 to 16383 is accepted");
	p->args->sfi = static_cast<uint32_t>(sfi);
	return 0;
}

int
parse_clock(const struct parse *p, const char *key, const char *value)
{
	if (strcmp(value, "tsc") == 0)
		p->args->clock = vask_clock_source::TSC;
	else if (strcmp(value, "capture") == 0)
		p->args->clock = vask_clock_source::CAPTURE;
	else
		return refuse(p, key, value, "tsc or capture is accepted");
	return 0;
}

int
parse_tick(const struct parse *p, const char *key, const char *value)
{
	if (strcmp(value, "us") == 0)
		p->args->tick = vask_tick::US;
	else if (strcmp(value, "ns") == 0)
		p->args->tick = vask_tick::NS;
	else
		return refuse(p, key, value, "us or ns is accepted");
	return 0;
}

int
parse_shapers(const struct parse *p, const char *key, const char *value)
{
	if (strcmp(value, "observe") == 0)
		p->args->shapers = vask_shapers::OBSERVE;
	else if (strcmp(value, "enforce") == 0)
		p->args->shapers = vask_shapers::ENFORCE;
	else
		return refuse(p, key, value, "observe or enforce is accepted");
	return 0;
}

int
parse_fault(const struct parse *p, const char *key, const char *value)
{
	if (p->args->n_faults == VASK_FAULT_ARGS_MAX)
		return refuse(p, key, value, "at most 16 faults are accepted");
	if (value[0] == '\0' || strlen(value) >= VASK_FAULT_ARG_LEN)
		return refuse(
			p, key, value, "<operation>:<n|every>:<code>[:<microseconds>] is accepted");
	rte_strscpy(p->args->faults[p->args->n_faults++], value, VASK_FAULT_ARG_LEN);
	return 0;
}

int
parse_trace(const struct parse *p, const char *key, const char *value)
{
	if (value[0] == '\0' || strlen(value) >= sizeof(p->args->trace))
		return refuse(p, key, value, "the path of a file is accepted");
	rte_strscpy(p->args->trace, value, sizeof(p->args->trace));
	return 0;
}

struct argument {
	const char *key;
	bool repeatable;
	int (*parse)(const struct parse *p, const char *key, const char *value);
};

constexpr struct argument arguments[] = {
	{"uplink", false, parse_uplink},
	{"sfi", false, parse_sfi},
	{"clock", false, parse_clock},
	{"tick", false, parse_tick},
	{"shapers", false, parse_shapers},
	{"fault", true, parse_fault},
	{"trace", false, parse_trace},
};

int
handle(const char *key, const char *value, void *opaque)
{
	const struct parse *p = static_cast<const struct parse *>(opaque);

	if (value == nullptr)
		value = "";
	for (const struct argument &a : arguments)
		if (strcmp(key, a.key) == 0)
			return a.parse(p, key, value);
	return refuse(p, key, value,
		"uplink, sfi, clock, tick, shapers, fault and trace are the arguments that are accepted");
}

} // namespace

int
vask_args_parse(const char *name, const char *text, struct vask_args *args)
{
	struct parse p = {name, args};

	*args = {};
	args->sfi = VASK_SFI_ANY;
	args->tick = vask_tick::US;
	if (text == nullptr)
		text = "";

	std::unique_ptr<struct rte_kvargs, decltype(&rte_kvargs_free)> list(
		rte_kvargs_parse(text, nullptr), rte_kvargs_free);
	if (list == nullptr) {
		VASK_P4_LOG(ERR, "%s: the arguments \"%s\" are refused: key=value,... is accepted",
			name, text);
		return -EINVAL;
	}
	if (rte_kvargs_process(list.get(), nullptr, handle, &p) != 0)
		return -EINVAL;
	for (const struct argument &a : arguments)
		if (!a.repeatable && rte_kvargs_count(list.get(), a.key) > 1)
			return refuse(&p, a.key, "...", "it is accepted once");
	return 0;
}
