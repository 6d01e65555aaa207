/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * In place of the fuzzer: runs a target on each file of a corpus once and reports each as a test, in TAP. A
 * target ends the program where something does not hold.
 */
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

int
main(int argc, char **argv)
{
	std::vector<std::filesystem::path> files;

	if (argc != 2) {
		fprintf(stderr, "usage: %s CORPUS\n", argv[0]);
		return 2;
	}
	for (const auto &entry : std::filesystem::directory_iterator(argv[1]))
		files.push_back(entry.path());
	std::sort(files.begin(), files.end());
	if (LLVMFuzzerInitialize != nullptr)
		LLVMFuzzerInitialize(&argc, &argv);

	printf("1..%zu\n", files.size());
	for (size_t i = 0; i < files.size(); i++) {
		std::ifstream in(files[i], std::ios::binary);
		/* exactly as long as the file, so that a sanitizer sees where it ends */
		const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};

		fprintf(stderr, "%s\n", files[i].c_str());
		LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
		printf("ok %zu - %s\n", i + 1, files[i].filename().c_str());
		fflush(stdout);
	}
	return files.empty() ? 1 : 0;
}
