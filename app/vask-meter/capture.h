/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_CAPTURE_H
#define VASK_METER_CAPTURE_H

/**
 * @file
 * Captures of Ethernet frames, read and written with libpcap in nanoseconds.
 */

#include <cstdint>
#include <memory>
#include <string>

#include <pcap/pcap.h>

#include "output_file.h"

struct captured_frame {
	uint64_t number; /* from 1 */
	uint64_t time_ns;
	uint32_t length;
	const uint8_t *data; /* the reader's, until the next frame */
};

struct pcap_closer {
	void operator()(pcap_t *p) const
	{
		pcap_close(p);
	}
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
	 *   a port takes; or a signal came.
	 */
	bool next(captured_frame &frame);

	/** Bytes of the file read so far, and in all (0 when the input is no file). */
	uint64_t position() const;
	uint64_t size() const
	{
		return size_;
	}

      private:
	std::string path_;
	std::unique_ptr<pcap_t, pcap_closer> pcap_;
	uint64_t number_ = 0;
	uint64_t size_ = 0;
};

class capture_writer
{
      public:
	/** @throws vask_meter_error: cannot be created. */
	explicit capture_writer(const std::string &path);

	/** @throws vask_meter_error: cannot be written. */
	void write(uint64_t time_ns, const uint8_t *data, uint32_t length);

	output_file &file()
	{
		return file_;
	}

      private:
	output_file file_;
	std::unique_ptr<pcap_t, pcap_closer> pcap_;
	pcap_dumper_t *dumper_;
};

#endif /* VASK_METER_CAPTURE_H */
