/* SPDX-License-Identifier: BSD-3-Clause */
#include "capture.h"

#include "error.h"
#include "input_file.h"
#include "interrupt.h"

namespace
{
constexpr uint32_t FRAME_MIN = 14;
constexpr uint32_t FRAME_MAX = 16384 + 14 + 4; /* the largest MTU, with a header and a VLAN tag */
constexpr int SNAP_LENGTH = 262144;
constexpr int64_t NS_PER_S = 1000000000;
constexpr int64_t SECONDS_MAX = INT32_MAX; /* what a pcap file holds */
} // namespace

capture_reader::capture_reader(const std::string &path) : path_(path)
{
	char why[PCAP_ERRBUF_SIZE] = "";

	size_ = check_input_file(path, input_kind::STREAM, "a capture, pcap or pcapng");
	pcap_.reset(pcap_open_offline_with_tstamp_precision(
		path.c_str(), PCAP_TSTAMP_PRECISION_NANO, why));
	if (!pcap_)
		refuse("{}: not a capture ({}); accepted are pcap and pcapng", path, why);
	if (const int link = pcap_datalink(pcap_.get()); link != DLT_EN10MB) {
		const char *name = pcap_datalink_val_to_name(link);
		refuse("{}: link type {}; accepted is EN10MB (Ethernet)", path,
			name ? name : "unknown");
	}
}

bool
capture_reader::next(captured_frame &frame)
{
	pcap_pkthdr *header;
	const u_char *data;

	const int got = pcap_next_ex(pcap_.get(), &header, &data);
	if (got == PCAP_ERROR_BREAK)
		return false;
	number_++;
	if (interrupted())
		fail("{}: interrupted at frame {}", path_, number_);
	if (got != 1)
		refuse("{}: frame {}: {}", path_, number_, pcap_geterr(pcap_.get()));
	if (header->caplen != header->len)
		refuse("{}: frame {}: {} of {} bytes captured; accepted are whole frames (tcpdump -s 0)",
			path_, number_, header->caplen, header->len);
	if (header->len < FRAME_MIN || header->len > FRAME_MAX)
		refuse("{}: frame {}: {} bytes; accepted are frames of {} to {} bytes", path_,
			number_, header->len, FRAME_MIN, FRAME_MAX);
	if (header->ts.tv_sec < 0 || header->ts.tv_sec > SECONDS_MAX || header->ts.tv_usec < 0 ||
		header->ts.tv_usec >= NS_PER_S)
		refuse("{}: frame {}: {} s and {} ns; accepted are times from 1970 to 2038", path_,
			number_, header->ts.tv_sec, header->ts.tv_usec);
	frame.number = number_;
	frame.time_ns = static_cast<uint64_t>(header->ts.tv_sec) * NS_PER_S +
		static_cast<uint64_t>(header->ts.tv_usec);
	frame.length = header->len;
	frame.data = data;
	return true;
}

uint64_t
capture_reader::position() const
{
	const long at = std::ftell(pcap_file(pcap_.get()));
	return at < 0 ? 0 : static_cast<uint64_t>(at);
}

capture_writer::capture_writer(const std::string &path) : file_(path)
{
	pcap_.reset(pcap_open_dead_with_tstamp_precision(
		DLT_EN10MB, SNAP_LENGTH, PCAP_TSTAMP_PRECISION_NANO));
	if (!pcap_)
		throw std::bad_alloc();
	/* writes the file's header; the stream stays ours */
	dumper_ = pcap_dump_fopen(pcap_.get(), file_.stream());
	if (dumper_ == nullptr)
		fail("{}: {}", path, pcap_geterr(pcap_.get()));
}

void
capture_writer::write(uint64_t time_ns, const uint8_t *data, uint32_t length)
{
	pcap_pkthdr header = {};
	header.ts.tv_sec = static_cast<time_t>(time_ns / 1000000000);
	header.ts.tv_usec = static_cast<suseconds_t>(time_ns % 1000000000);
	header.caplen = header.len = length;
	pcap_dump(reinterpret_cast<u_char *>(dumper_), &header, data);
	file_.check_written();
}
