/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_CAPTURE_H
#define VASK_METER_CAPTURE_H

/**
 * @file
 * Captures of Ethernet frames, read and written with libpcap in nanoseconds.
 */

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <pcap/pcap.h>

struct captured_frame {
	uint64_t number; /* from 1 */
	uint64_t time_ns;
	uint32_t length;
	const uint8_t *data; /* the reader's, until the next frame */
};

class capture_reader
{
      public:
	/** @throws vask_meter_error: cannot be opened, or holds no Ethernet frames. */
	explicit capture_reader(const std::string &path);

	/**
	 * The next frame.
	 *
	 * @return false at the end.
	 * @throws vask_meter_error: the file is cut short, or the frame is not there as a whole or longer than
	 *   a port takes.
	 */
	bool next(captured_frame &frame);

	/** Bytes of the file read so far, and in all (0 when the input is no file). */
	uint64_t position() const;
	uint64_t size() const
	{
		return size_;
	}

      private:
	struct closer {
		void operator()(pcap_t *p) const
		{
			pcap_close(p);
		}
	};
	std::string path_;
	std::unique_ptr<pcap_t, closer> pcap_;
	uint64_t number_ = 0;
	uint64_t size_ = 0;
};

/** Writes a capture beside its final name, and puts it there when it is whole. */
class capture_writer
{
      public:
	/** @throws vask_meter_error: cannot be created. */
	explicit capture_writer(const std::string &path);
	/** Removes what was written, unless commit() put it in place. */
	~capture_writer();
	capture_writer(const capture_writer &) = delete;
	capture_writer &operator=(const capture_writer &) = delete;

	void write(uint64_t time_ns, const uint8_t *data, uint32_t length);

	/** @throws vask_meter_error: cannot be written or renamed. */
	void commit();

      private:
	std::string path_, part_;
	pcap_t *pcap_ = nullptr;
	pcap_dumper_t *dumper_ = nullptr;
};

/** Writes a text file likewise: whole or not at all. */
void write_whole_file(const std::string &path, const std::string &text);

#endif /* VASK_METER_CAPTURE_H */
