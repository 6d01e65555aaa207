/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * capture_tool make FILE N   writes a capture of N UDP packets of 64 bytes, 500 to 1499 ns apart
 * capture_tool read FILE     reads a capture with libpcap and does nothing with it; prints the packets
 */

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "capture.h"
#include "error.h"

static void
make(const char *path, uint64_t n)
{
	uint8_t frame[64] = {2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1, 0x08, 0x00, 0x45, 0, 0, 50, 0, 0,
		0, 0, 64, 17, 0x66, 0xb7, 10, 0, 0, 1, 10, 0, 0, 2, 0x10, 0, 0x14, 0x51, 0, 30};
	uint64_t time_ns = 1700000000000000000, state = 1;
	capture_writer writer(path);

	for (uint64_t i = 0; i < n; i++) {
		state = state * 6364136223846793005 + 1442695040888963407;
		time_ns += 500 + (state >> 33) % 1000;
		std::memcpy(frame + 42, &i, sizeof(i));
		writer.write(time_ns, frame, sizeof(frame));
	}
	writer.file().commit();
}

static uint64_t
read(const char *path)
{
	char why[PCAP_ERRBUF_SIZE];
	pcap_t *pcap =
		pcap_open_offline_with_tstamp_precision(path, PCAP_TSTAMP_PRECISION_NANO, why);
	pcap_pkthdr *header;
	const u_char *data;
	uint64_t n = 0;

	if (pcap == nullptr)
		fail("{}: {}", path, why);
	while (pcap_next_ex(pcap, &header, &data) == 1)
		n++;
	pcap_close(pcap);
	return n;
}

int
main(int argc, char **argv)
{
	try {
		if (argc == 4 && std::string(argv[1]) == "make")
			make(argv[2], std::stoull(argv[3]));
		else if (argc == 3 && std::string(argv[1]) == "read")
			fmt::print("{}\n", read(argv[2]));
		else
			fail("usage: capture_tool make FILE N | read FILE");
	} catch (const std::exception &e) {
		fmt::print(stderr, "capture_tool: {}\n", e.what());
		return EXIT_FAILURE;
	}
	return EXIT_SUCCESS;
}
