/* SPDX-License-Identifier: BSD-3-Clause */
#include "capture.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"

namespace
{
constexpr uint32_t FRAME_MIN = 14;
constexpr uint32_t FRAME_MAX = 16384 + 14 + 4; /* the largest MTU, with a header and a VLAN tag */
constexpr int SNAP_LENGTH = 262144;

/* Where a file is written until it is whole: beside its place, but a device or a pipe as itself. */
std::string
part_of(const std::string &path)
{
	struct stat st;
	if (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
		return path;
	return fmt::format("{}.part.{}", path, getpid());
}

void
discard(const std::string &part, const std::string &path)
{
	if (part != path)
		unlink(part.c_str());
}

bool
put_in_place(const std::string &part, const std::string &path)
{
	return part == path || std::rename(part.c_str(), path.c_str()) == 0;
}
} // namespace

capture_reader::capture_reader(const std::string &path) : path_(path)
{
	char why[PCAP_ERRBUF_SIZE] = "";
	struct stat st;

	if (stat(path.c_str(), &st) != 0)
		refuse("{}: {}", path, std::strerror(errno));
	if (!S_ISREG(st.st_mode) && !S_ISFIFO(st.st_mode) && !S_ISCHR(st.st_mode))
		refuse("{}: is no file", path);
	if (access(path.c_str(), R_OK) != 0)
		fail("{}: {}", path, std::strerror(errno));
	pcap_.reset(pcap_open_offline_with_tstamp_precision(
		path.c_str(), PCAP_TSTAMP_PRECISION_NANO, why));
	if (!pcap_)
		refuse("{}: not a capture ({}); accepted are pcap and pcapng", path, why);
	if (const int link = pcap_datalink(pcap_.get()); link != DLT_EN10MB) {
		const char *name = pcap_datalink_val_to_name(link);
		refuse("{}: link type {}; accepted is EN10MB (Ethernet)", path,
			name ? name : "unknown");
	}
	size_ = S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
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
	if (got != 1)
		refuse("{}: frame {}: {}", path_, number_, pcap_geterr(pcap_.get()));
	if (header->caplen != header->len)
		refuse("{}: frame {}: {} of {} bytes captured; accepted are whole frames (tcpdump -s 0)",
			path_, number_, header->caplen, header->len);
	if (header->len < FRAME_MIN || header->len > FRAME_MAX)
		refuse("{}: frame {}: {} bytes; accepted are frames of {} to {} bytes", path_,
			number_, header->len, FRAME_MIN, FRAME_MAX);
	frame.number = number_;
	frame.time_ns = static_cast<uint64_t>(header->ts.tv_sec) * 1000000000 +
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

capture_writer::capture_writer(const std::string &path) : path_(path), part_(part_of(path))
{
	pcap_ = pcap_open_dead_with_tstamp_precision(
		DLT_EN10MB, SNAP_LENGTH, PCAP_TSTAMP_PRECISION_NANO);
	if (pcap_ == nullptr)
		throw std::bad_alloc();
	dumper_ = pcap_dump_open(pcap_, part_.c_str());
	if (dumper_ == nullptr) {
		const std::string why = pcap_geterr(pcap_);
		pcap_close(pcap_);
		fail("{}: cannot write ({})", path_, why);
	}
}

capture_writer::~capture_writer()
{
	if (dumper_ != nullptr) {
		pcap_dump_close(dumper_);
		discard(part_, path_);
	}
	pcap_close(pcap_);
}

void
capture_writer::write(uint64_t time_ns, const uint8_t *data, uint32_t length)
{
	pcap_pkthdr header = {};
	header.ts.tv_sec = static_cast<time_t>(time_ns / 1000000000);
	header.ts.tv_usec = static_cast<suseconds_t>(time_ns % 1000000000);
	header.caplen = header.len = length;
	pcap_dump(reinterpret_cast<u_char *>(dumper_), &header, data);
}

void
capture_writer::commit()
{
	if (pcap_dump_flush(dumper_) != 0 || std::ferror(pcap_dump_file(dumper_)))
		fail("{}: {}", path_, std::strerror(errno));
	if (!put_in_place(part_, path_))
		fail("{}: {}", path_, std::strerror(errno));
	pcap_dump_close(dumper_);
	dumper_ = nullptr;
}

void
write_whole_file(const std::string &path, const std::string &text)
{
	const std::string part = part_of(path);
	std::FILE *f = std::fopen(part.c_str(), "w");

	if (f == nullptr)
		fail("{}: {}", path, std::strerror(errno));
	const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
	if (std::fclose(f) != 0 || !written || !put_in_place(part, path)) {
		const int why = errno;
		discard(part, path);
		fail("{}: {}", path, std::strerror(why));
	}
}
