/* SPDX-License-Identifier: BSD-3-Clause */
#include <cstring>

#include <rte_string_fns.h>

#include "vask_queue.h"
#include "vask_stats.h"

namespace
{

struct xstat {
	const char *name;
	int dir;
	enum vask_counter counter;
};

constexpr struct xstat xstats_table[] = {
	{"rx_meter_dropped_packets", VASK_P4_MEP_INGRESS, VASK_METER_DROPPED_PACKETS},
	{"rx_meter_dropped_bytes", VASK_P4_MEP_INGRESS, VASK_METER_DROPPED_BYTES},
	{"rx_flow_dropped_packets", VASK_P4_MEP_INGRESS, VASK_FLOW_DROPPED_PACKETS},
	{"rx_mtu_dropped_packets", VASK_P4_MEP_INGRESS, VASK_MTU_DROPPED_PACKETS},
	{"rx_shaper_dropped_packets", VASK_P4_MEP_INGRESS, VASK_SHAPER_DROPPED_PACKETS},
	{"rx_shaper_waiting_packets", VASK_P4_MEP_INGRESS, VASK_SHAPER_WAITING_PACKETS},
	{"rx_queue_dropped_packets", VASK_P4_MEP_INGRESS, VASK_QUEUE_DROPPED_PACKETS},
	{"tx_meter_dropped_packets", VASK_P4_MEP_EGRESS, VASK_METER_DROPPED_PACKETS},
	{"tx_meter_dropped_bytes", VASK_P4_MEP_EGRESS, VASK_METER_DROPPED_BYTES},
	{"tx_flow_dropped_packets", VASK_P4_MEP_EGRESS, VASK_FLOW_DROPPED_PACKETS},
	{"tx_mtu_dropped_packets", VASK_P4_MEP_EGRESS, VASK_MTU_DROPPED_PACKETS},
	{"tx_shaper_dropped_packets", VASK_P4_MEP_EGRESS, VASK_SHAPER_DROPPED_PACKETS},
	{"tx_shaper_waiting_packets", VASK_P4_MEP_EGRESS, VASK_SHAPER_WAITING_PACKETS},
};

struct queues {
	void **queue;
	uint16_t n;
};

struct queues
queues_of(const struct rte_eth_dev *dev, int dir)
{
	const struct rte_eth_dev_data *data = dev->data;

	if (dir == VASK_P4_MEP_INGRESS)
		return {data->rx_queues, data->nb_rx_queues};
	return {data->tx_queues, data->nb_tx_queues};
}

/* A queue's counts, all zero while the queue is not set up. */
void
queue_counts(const struct queues &queues, uint16_t i, uint64_t *counts)
{
	const struct vask_queue *q = static_cast<const struct vask_queue *>(queues.queue[i]);

	if (q != nullptr)
		vask_queue_counts(q, counts);
	else
		memset(counts, 0, VASK_COUNTS * sizeof(*counts));
}

void
direction_counts(const struct rte_eth_dev *dev, int dir, uint64_t *sum)
{
	const struct queues queues = queues_of(dev, dir);
	uint64_t counts[VASK_COUNTS];

	memset(sum, 0, VASK_COUNTS * sizeof(*sum));
	for (uint16_t i = 0; i < queues.n; i++) {
		queue_counts(queues, i, counts);
		for (unsigned c = 0; c < VASK_COUNTS; c++)
			sum[c] += counts[c];
	}
}

/* Per-queue statistics have room for the first queues only. */
void
queue_stats(const struct rte_eth_dev *dev, int dir, uint64_t *packets, uint64_t *bytes)
{
	const struct queues queues = queues_of(dev, dir);
	uint64_t counts[VASK_COUNTS];

	for (uint16_t i = 0; i < queues.n && i < RTE_ETHDEV_QUEUE_STAT_CNTRS; i++) {
		queue_counts(queues, i, counts);
		packets[i] = counts[VASK_PACKETS];
		bytes[i] = counts[VASK_BYTES];
	}
}

} // namespace

int
vask_stats_get(struct rte_eth_dev *dev, struct rte_eth_stats *stats VASK_STATS_GET_QUEUES)
{
	uint64_t rx[VASK_COUNTS], tx[VASK_COUNTS];
	const uint16_t uplink_id = vask_port_of(dev)->uplink.port_id;
	struct rte_eth_stats uplink;

	direction_counts(dev, VASK_P4_MEP_INGRESS, rx);
	direction_counts(dev, VASK_P4_MEP_EGRESS, tx);
	stats->ipackets = rx[VASK_PACKETS];
	stats->ibytes = rx[VASK_BYTES];
	stats->opackets = tx[VASK_PACKETS];
	stats->obytes = tx[VASK_BYTES];
	stats->imissed = rx[VASK_SHAPER_DROPPED_PACKETS] + rx[VASK_QUEUE_DROPPED_PACKETS];
	if (auto *queues_of = VASK_QUEUE_STATS(stats); queues_of != nullptr) {
		queue_stats(dev, VASK_P4_MEP_INGRESS, queues_of->q_ipackets, queues_of->q_ibytes);
		queue_stats(dev, VASK_P4_MEP_EGRESS, queues_of->q_opackets, queues_of->q_obytes);
	}

	/* what the wire itself lost */
	if (uplink_id != VASK_UPLINK_NONE && rte_eth_stats_get(uplink_id, &uplink) == 0) {
		stats->imissed += uplink.imissed;
		stats->ierrors = uplink.ierrors;
		stats->oerrors = uplink.oerrors;
		stats->rx_nombuf = uplink.rx_nombuf;
	}
	return 0;
}

int
vask_stats_reset(struct rte_eth_dev *dev)
{
	const uint16_t uplink = vask_port_of(dev)->uplink.port_id;

	for (int dir : {VASK_P4_MEP_INGRESS, VASK_P4_MEP_EGRESS}) {
		const struct queues queues = queues_of(dev, dir);

		for (uint16_t i = 0; i < queues.n; i++)
			if (queues.queue[i] != nullptr)
				vask_queue_counts_reset(
					static_cast<struct vask_queue *>(queues.queue[i]));
	}
	return uplink == VASK_UPLINK_NONE ? 0 : rte_eth_stats_reset(uplink);
}

int
vask_xstats_get(struct rte_eth_dev *dev, struct rte_eth_xstat *xstats, unsigned int n)
{
	uint64_t counts[2][VASK_COUNTS];

	if (n < RTE_DIM(xstats_table))
		return RTE_DIM(xstats_table);
	direction_counts(dev, VASK_P4_MEP_INGRESS, counts[VASK_P4_MEP_INGRESS]);
	direction_counts(dev, VASK_P4_MEP_EGRESS, counts[VASK_P4_MEP_EGRESS]);
	for (unsigned i = 0; i < RTE_DIM(xstats_table); i++) {
		xstats[i].id = i;
		xstats[i].value = counts[xstats_table[i].dir][xstats_table[i].counter];
	}
	return RTE_DIM(xstats_table);
}

int
vask_xstats_get_names(struct rte_eth_dev *, struct rte_eth_xstat_name *names, unsigned int n)
{
	if (names != nullptr && n >= RTE_DIM(xstats_table))
		for (unsigned i = 0; i < RTE_DIM(xstats_table); i++)
			rte_strscpy(names[i].name, xstats_table[i].name, sizeof(names[i].name));
	return RTE_DIM(xstats_table);
}
