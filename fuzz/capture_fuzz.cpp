/* SPDX-License-Identifier: BSD-3-Clause */
/* Captures of any bytes: read frame by frame or refused, and what was read is read again from what is written. */
#include <cstdlib>
#include <vector>

#include "capture.h"
#include "check.h"
#include "error.h"
#include "memory_file.h"

namespace
{

constexpr size_t FRAMES_MAX = 32;

struct Frame {
	uint64_t time_ns;
	std::vector<uint8_t> bytes;

	bool operator==(const Frame &) const = default;
};

std::string directory;

/* The frames up to the end, or up to what is wrong. */
std::vector<Frame>
Read(const std::string &path, bool *whole)
{
	std::vector<Frame> frames;

	*whole = false;
	try {
		capture_reader reader(path);
		captured_frame frame;

		while (frames.size() < FRAMES_MAX && reader.next(frame)) {
			FUZZ_CHECK(frame.number == frames.size() + 1);
			FUZZ_CHECK(frame.length >= 14 && frame.length <= 16384 + 18);
			FUZZ_CHECK(reader.position() <= reader.size());
			frames.push_back({frame.time_ns, {frame.data, frame.data + frame.length}});
		}
		*whole = true;
	} catch (const vask_meter_error &e) {
		const std::string line = e.what();

		FUZZ_CHECK(e.exit_code == VASK_METER_REFUSED);
		FUZZ_CHECK(line.starts_with(path + ":") && line.find('\n') == std::string::npos);
	}
	return frames;
}

} // namespace

extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	char name[] = "/tmp/vask-fuzz-XXXXXX";

	FUZZ_CHECK(mkdtemp(name) != nullptr);
	directory = name;
	atexit([] { rmdir(directory.c_str()); });
	return 0;
}

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const MemoryFile file(data, size);
	const std::string path = directory + "/out.pcap";
	bool whole;

	const std::vector<Frame> frames = Read(file.path(), &whole);
	if (frames.empty())
		return 0;
	{
		capture_writer writer(path);
		for (const Frame &frame : frames)
			writer.write(frame.time_ns, frame.bytes.data(),
				static_cast<uint32_t>(frame.bytes.size()));
		writer.file().commit();
	}
	const std::vector<Frame> again = Read(path, &whole);
	unlink(path.c_str());
	FUZZ_CHECK(whole && again == frames);
	return 0;
}
