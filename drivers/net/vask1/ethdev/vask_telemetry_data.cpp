/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstdarg>
#include <cstdio>

#include <rte_string_fns.h>

#include "vask_telemetry.h"

int
vask_tel_error(struct rte_tel_data *d, const char *format, ...)
{
	char text[RTE_TEL_MAX_STRING_LEN];
	va_list ap;

	va_start(ap, format);
	vsnprintf(text, sizeof(text), format, ap);
	va_end(ap);
	rte_tel_data_start_dict(d);
	rte_tel_data_add_dict_string(d, "error", text);
	return 0;
}

struct rte_tel_data *
vask_tel_dict()
{
	struct rte_tel_data *d = rte_tel_data_alloc();

	if (d != nullptr)
		rte_tel_data_start_dict(d);
	return d;
}

void
vask_tel_add_dict(struct rte_tel_data *d, const char *name, struct rte_tel_data *inner)
{
	if (inner != nullptr)
		rte_tel_data_add_dict_container(d, name, inner, 0);
}

void
vask_tel_add_text(struct rte_tel_data *d, const char *name, const char *text)
{
	char printable[RTE_TEL_MAX_STRING_LEN];

	rte_strscpy(printable, text, sizeof(printable));
	for (char *c = printable; *c != '\0'; c++)
		if (*c < ' ' || *c > '~')
			*c = '?';
	rte_tel_data_add_dict_string(d, name, printable);
}

void
vask_tel_add_bool(struct rte_tel_data *d, const char *name, bool value)
{
	rte_tel_data_add_dict_int(d, name, value);
}
