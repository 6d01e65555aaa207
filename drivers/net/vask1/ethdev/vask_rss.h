/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_RSS_H
#define VASK_RSS_H

/**
 * @file
 * Receive-side scaling in software, for a port that asks for more than its uplink has: an uplink without RSS, or
 * with fewer receive queues. The uplink's queues are polled by the port's queues of the same number, which
 * hash what they receive (Toeplitz) and hand it to the queues that the redirection table names.
 *
 * Hashed are IPv4 and IPv6 addresses, and with them the ports of UDP and TCP; fragments have no ports. Other
 * packets stay with the queue that received them. A QUEUE rule goes before the table.
 */

#include <array>
#include <cstdint>

#include "vask_dpdk.h"

struct softcard_burst;
struct vask_flow_verdict;
struct vask_port;

constexpr uint16_t VASK_RSS_RETA_SIZE = RTE_ETH_RSS_RETA_SIZE_128;
constexpr uint8_t VASK_RSS_KEY_SIZE = 40; /* bytes: an IPv6 tuple's, and the word behind it */
constexpr uint64_t VASK_RSS_TYPES = RTE_ETH_RSS_IPV4 | RTE_ETH_RSS_NONFRAG_IPV4_TCP |
	RTE_ETH_RSS_NONFRAG_IPV4_UDP | RTE_ETH_RSS_IPV6 | RTE_ETH_RSS_NONFRAG_IPV6_TCP |
	RTE_ETH_RSS_NONFRAG_IPV6_UDP;

/** How a port spreads packets; bursts see it change as a whole. */
struct vask_rss {
	uint16_t uplink_queues; /* receive queues of the uplink */
	uint64_t types;         /* of VASK_RSS_TYPES */
	std::array<uint8_t, VASK_RSS_KEY_SIZE> key;
	std::array<uint32_t, VASK_RSS_KEY_SIZE / 4> key_words; /* the same in host order */
	std::array<uint16_t, VASK_RSS_RETA_SIZE> reta;
};

/**
 * Spreads in software, or leaves it to the uplink, as the port's configuration and the uplink ask for. The port
 * is stopped.
 *
 * @return 0; -EINVAL after an ERR line for a key of another length than VASK_RSS_KEY_SIZE; -ENOMEM.
 */
int vask_rss_configure(struct vask_port *port);

/** How many receive queues the uplink has to have. */
uint16_t vask_rss_uplink_queues(const struct vask_port *port);

/** Ends spreading in software. No burst may be under way. */
void vask_rss_fini(struct vask_port *port);

/** Tells the software's abilities in place of the uplink's, where they are what the port offers. */
void vask_rss_info(const struct vask_port *port, const struct rte_eth_dev_info *uplink,
	struct rte_eth_dev_info *info);

/** The hash of a packet, or false for one that is not hashed. */
bool vask_rss_hash(const struct vask_rss *rss, const struct rte_mbuf *pkt, uint32_t *hash);

/**
 * Leaves hashes in the packets of a burst and the queues that they go to in tag, but for those that a rule sends
 * elsewhere. For the thread that bursts on the queue.
 */
void vask_rss_spread(const struct vask_rss *rss, struct softcard_burst *burst,
	struct vask_flow_verdict *verdict);

/** @name Ethdev operations
 * The software's, or the uplink's while packets are spread by it. They take the control lock.
 * @{
 */
int vask_rss_hash_update(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf);
int vask_rss_hash_conf_get(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf);
int
vask_rss_reta_update(struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size);
int
vask_rss_reta_query(struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size);
/** @} */

#endif /* VASK_RSS_H */
