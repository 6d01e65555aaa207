/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

/**
 * @file
 * Choices out of a fuzzer's bytes, read from the front, numbers with their low byte first. What lies past the
 * end is 0: every byte string is a whole input.
 */

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

class Input
{
      public:
	Input(const uint8_t *data, size_t size) : at_(data), end_(data + size)
	{
	}

	bool empty() const
	{
		return at_ == end_;
	}

	size_t size() const
	{
		return static_cast<size_t>(end_ - at_);
	}

	uint8_t Byte()
	{
		return empty() ? 0 : *at_++;
	}

	bool Bit()
	{
		return (Byte() & 1) != 0;
	}

	/** A number of n bytes, at most 8. */
	uint64_t Raw(unsigned n)
	{
		uint64_t number = 0;

		for (unsigned i = 0; i < n; i++)
			number |= static_cast<uint64_t>(Byte()) << 8 * i;
		return number;
	}

	/** A number of any size: a byte says how many bytes follow, 9 stands for all ones. */
	uint64_t Number()
	{
		const unsigned n = Byte() % 10;

		return n == 9 ? UINT64_MAX : Raw(n);
	}

	/** 0 to n - 1, n at most 256. */
	unsigned Below(unsigned n)
	{
		return Byte() % n;
	}

	/** An id below n, or, seldom, any. */
	uint32_t Id(unsigned n)
	{
		const uint8_t byte = Byte();

		return byte < 250 ? byte % n : static_cast<uint32_t>(Number());
	}

	template <typename T> T Of(std::initializer_list<T> values)
	{
		return values.begin()[Below(static_cast<unsigned>(values.size()))];
	}

	/** The next n bytes, or as many as there are. */
	std::vector<uint8_t> Bytes(size_t n)
	{
		const uint8_t *from = at_;

		at_ += std::min(n, size());
		return {from, at_};
	}

	/** All that is left, as text. */
	std::string Text()
	{
		std::string text(at_, end_);

		at_ = end_;
		return text;
	}

      private:
	const uint8_t *at_;
	const uint8_t *end_;
};

#endif /* FUZZ_INPUT_H */
