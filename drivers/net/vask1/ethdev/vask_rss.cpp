/* SPDX-License-Identifier: BSD-3-Clause */
#include <cerrno>
#include <cstring>

#include <rte_malloc.h>
#include <rte_mbuf.h>
#include <rte_thash.h>

#include "softcard.h"
#include "vask_flow.h"
#include "vask_flow_fields.h"
#include "vask_flow_rule.h"
#include "vask_p4_log.h"
#include "vask_port.h"
#include "vask_rss.h"
#include "vask_uplink_ops.h"

/* The key that hashes are usually checked with. */
static constexpr std::array<uint8_t, VASK_RSS_KEY_SIZE> DEFAULT_KEY = {0x6d, 0x5a, 0x56, 0xda, 0x25,
	0x5b, 0x0e, 0xc2, 0x41, 0x67, 0x25, 0x3d, 0x43, 0xa3, 0x8f, 0xb0, 0xd0, 0xca, 0x2b, 0xcb,
	0xae, 0x7b, 0x30, 0xb4, 0x77, 0xcb, 0x2d, 0xa3, 0x80, 0x30, 0xf2, 0x0c, 0x6a, 0x42, 0xb7,
	0x3b, 0xbe, 0xac, 0x01, 0xfa};

/* IPv6 addresses and the ports, in words. */
static constexpr unsigned TUPLE_WORDS = 9;

static_assert(VASK_RSS_KEY_SIZE / 4 > TUPLE_WORDS, "each word of a tuple reads the key's next one");

static int
set_conf(const struct vask_port *port, const struct rte_eth_rss_conf *conf, struct vask_rss *rss)
{
	rss->types = conf->rss_hf & VASK_RSS_TYPES;
	if (conf->rss_key == nullptr)
		return 0;
	if (conf->rss_key_len != VASK_RSS_KEY_SIZE) {
		VASK_P4_LOG(ERR, "%s: an RSS key of %u bytes is refused, one of %u is accepted",
			port->data->name, conf->rss_key_len, VASK_RSS_KEY_SIZE);
		return -EINVAL;
	}
	memcpy(rss->key.data(), conf->rss_key, VASK_RSS_KEY_SIZE);
	return 0;
}

/* Puts a copy of it into the bursts' hands. Null: none. */
static int
publish(struct vask_port *port, const struct vask_rss *rss)
{
	struct vask_rss *copy = nullptr;

	if (rss != nullptr) {
		copy = static_cast<struct vask_rss *>(
			rte_zmalloc("vask_rss", sizeof(*copy), RTE_CACHE_LINE_SIZE));
		if (copy == nullptr)
			return -ENOMEM;
		*copy = *rss;
		for (unsigned i = 0; i < copy->key_words.size(); i++) {
			memcpy(&copy->key_words[i], &copy->key[4 * i], 4);
			copy->key_words[i] = rte_be_to_cpu_32(copy->key_words[i]);
		}
	}

	struct vask_rss *old = port->rss.exchange(copy, std::memory_order_acq_rel);
	vask_port_bursts_end(port);
	rte_free(old);
	return 0;
}

int
vask_rss_configure(struct vask_port *port)
{
	const struct vask_control_guard lock;
	const struct rte_eth_conf *conf = &port->data->dev_conf;
	const uint16_t queues = port->data->nb_rx_queues;
	struct rte_eth_dev_info uplink;
	struct vask_rss rss = {};

	if ((conf->rxmode.mq_mode & RTE_ETH_MQ_RX_RSS_FLAG) == 0 || queues == 0 ||
		vask_uplink_info(port, &uplink) != 0 ||
		(uplink.flow_type_rss_offloads != 0 && queues <= uplink.max_rx_queues))
		return publish(port, nullptr);

	rss.uplink_queues = RTE_MIN(queues, uplink.max_rx_queues);
	rss.key = DEFAULT_KEY;
	for (size_t i = 0; i < rss.reta.size(); i++)
		rss.reta[i] = i % queues;
	const int rc = set_conf(port, &conf->rx_adv_conf.rss_conf, &rss);
	return rc != 0 ? rc : publish(port, &rss);
}

uint16_t
vask_rss_uplink_queues(const struct vask_port *port)
{
	const struct vask_control_guard lock;
	const struct vask_rss *rss = port->rss;

	return rss != nullptr ? rss->uplink_queues : port->data->nb_rx_queues;
}

void
vask_rss_fini(struct vask_port *port)
{
	rte_free(port->rss.exchange(nullptr));
}

void
vask_rss_info(const struct vask_port *port, const struct rte_eth_dev_info *uplink,
	struct rte_eth_dev_info *info)
{
	if (uplink->flow_type_rss_offloads != 0 && port->rss == nullptr)
		return;
	info->rx_offload_capa |= RTE_ETH_RX_OFFLOAD_RSS_HASH;
	info->flow_type_rss_offloads = VASK_RSS_TYPES;
	info->reta_size = VASK_RSS_RETA_SIZE;
	info->hash_key_size = VASK_RSS_KEY_SIZE;
}

static uint32_t
word_at(const void *p)
{
	uint32_t word;

	memcpy(&word, p, sizeof(word));
	return rte_be_to_cpu_32(word);
}

bool
vask_rss_hash(const struct vask_rss *rss, const struct rte_mbuf *pkt, uint32_t *hash)
{
	union vask_flow_fields f;
	std::array<uint32_t, TUPLE_WORDS> tuple;
	uint64_t addresses, tcp, udp;
	unsigned n = 0;

	vask_flow_fields_read(pkt, &f);
	if ((f.present & VASK_FLOW_HAS_IPV4) != 0) {
		tuple[n++] = rte_be_to_cpu_32(f.ipv4.src_addr);
		tuple[n++] = rte_be_to_cpu_32(f.ipv4.dst_addr);
		addresses = RTE_ETH_RSS_IPV4;
		tcp = RTE_ETH_RSS_NONFRAG_IPV4_TCP;
		udp = RTE_ETH_RSS_NONFRAG_IPV4_UDP;
	} else if ((f.present & VASK_FLOW_HAS_IPV6) != 0) {
		for (unsigned at = 0; at < 16; at += 4)
			tuple[n++] = word_at(f.ipv6.src_addr + at);
		for (unsigned at = 0; at < 16; at += 4)
			tuple[n++] = word_at(f.ipv6.dst_addr + at);
		addresses = RTE_ETH_RSS_IPV6;
		tcp = RTE_ETH_RSS_NONFRAG_IPV6_TCP;
		udp = RTE_ETH_RSS_NONFRAG_IPV6_UDP;
	} else {
		return false;
	}

	if (((f.present & VASK_FLOW_HAS_TCP) != 0 && (rss->types & tcp) != 0) ||
		((f.present & VASK_FLOW_HAS_UDP) != 0 && (rss->types & udp) != 0))
		tuple[n++] = word_at(f.l4_ports);
	else if ((rss->types & addresses) == 0)
		return false;
	*hash = rte_softrss_be(
		tuple.data(), n, reinterpret_cast<const uint8_t *>(rss->key_words.data()));
	return true;
}

void
vask_rss_spread(
	const struct vask_rss *rss, struct softcard_burst *burst, struct vask_flow_verdict *verdict)
{
	uint32_t hash;

	for (uint16_t i = 0; i < burst->n; i++) {
		struct rte_mbuf *pkt = burst->pkts[i];

		if (!verdict->diverted)
			burst->tag[i] = VASK_FLOW_STAY;
		if (!vask_rss_hash(rss, pkt, &hash))
			continue;
		pkt->hash.rss = hash;
		pkt->ol_flags |= RTE_MBUF_F_RX_RSS_HASH;
		if (burst->tag[i] == VASK_FLOW_STAY)
			burst->tag[i] = rss->reta[hash % VASK_RSS_RETA_SIZE];
	}
	verdict->diverted = true;
}

int
vask_rss_hash_update(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf)
{
	const struct vask_control_guard lock;
	struct vask_port *port = vask_port_of(dev);
	const struct vask_rss *now = port->rss;

	if (now == nullptr)
		return vask_uplink_rss_hash_update(dev, conf);

	struct vask_rss rss = *now;
	const int rc = set_conf(port, conf, &rss);
	return rc != 0 ? rc : publish(port, &rss);
}

int
vask_rss_hash_conf_get(struct rte_eth_dev *dev, struct rte_eth_rss_conf *conf)
{
	const struct vask_control_guard lock;
	const struct vask_rss *rss = vask_port_of(dev)->rss;

	if (rss == nullptr)
		return vask_uplink_rss_hash_conf_get(dev, conf);
	if (conf->rss_key != nullptr && conf->rss_key_len >= VASK_RSS_KEY_SIZE)
		memcpy(conf->rss_key, rss->key.data(), VASK_RSS_KEY_SIZE);
	conf->rss_key_len = VASK_RSS_KEY_SIZE;
	conf->rss_hf = rss->types;
	return 0;
}

static bool
is_masked(const struct rte_eth_rss_reta_entry64 *reta, uint16_t i)
{
	return (reta[i / RTE_ETH_RETA_GROUP_SIZE].mask >> i % RTE_ETH_RETA_GROUP_SIZE & 1) != 0;
}

int
vask_rss_reta_update(struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size)
{
	const struct vask_control_guard lock;
	struct vask_port *port = vask_port_of(dev);
	const struct vask_rss *now = port->rss;

	if (now == nullptr)
		return vask_uplink_reta_update(dev, reta, size);
	if (size != VASK_RSS_RETA_SIZE)
		return -EINVAL;

	struct vask_rss rss = *now;
	for (uint16_t i = 0; i < size; i++)
		if (is_masked(reta, i))
			rss.reta[i] =
				reta[i / RTE_ETH_RETA_GROUP_SIZE].reta[i % RTE_ETH_RETA_GROUP_SIZE];
	return publish(port, &rss);
}

int
vask_rss_reta_query(struct rte_eth_dev *dev, struct rte_eth_rss_reta_entry64 *reta, uint16_t size)
{
	const struct vask_control_guard lock;
	const struct vask_rss *rss = vask_port_of(dev)->rss;

	if (rss == nullptr)
		return vask_uplink_reta_query(dev, reta, size);
	if (size != VASK_RSS_RETA_SIZE)
		return -EINVAL;
	for (uint16_t i = 0; i < size; i++)
		if (is_masked(reta, i))
			reta[i / RTE_ETH_RETA_GROUP_SIZE].reta[i % RTE_ETH_RETA_GROUP_SIZE] =
				rss->reta[i];
	return 0;
}
