/* SPDX-License-Identifier: BSD-3-Clause */
#include <pthread.h>

#include "vask_port.h"
#include "vask_rcu.h"

struct vask_port_list vask_ports = TAILQ_HEAD_INITIALIZER(vask_ports);

static pthread_mutex_t control_mutex = PTHREAD_MUTEX_INITIALIZER;

void
vask_control_lock()
{
	pthread_mutex_lock(&control_mutex);
}

bool
vask_control_trylock()
{
	return pthread_mutex_trylock(&control_mutex) == 0;
}

void
vask_control_unlock()
{
	pthread_mutex_unlock(&control_mutex);
}

void
vask_port_bursts_end(const struct vask_port *port)
{
	vask_rcu_synchronize(port->rcu);
}
