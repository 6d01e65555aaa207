/* SPDX-License-Identifier: BSD-3-Clause */
#include "output_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "error.h"

namespace
{
/* Where links lead, so that the file behind one is replaced and not the link. */
std::string
place_of(const std::string &path)
{
	std::error_code missing;
	const std::filesystem::path place = std::filesystem::canonical(path, missing);
	return missing ? path : place.string();
}

/* Whether they exist or not. */
bool
same_place(const std::string &a, const std::string &b)
{
	const auto place = [](const std::string &path) {
		std::error_code unreachable;
		return std::filesystem::weakly_canonical(
			std::filesystem::absolute(path, unreachable), unreachable);
	};
	return !place(a).empty() && place(a) == place(b);
}

std::string
part_of(const std::string &place)
{
	struct stat st;
	if (stat(place.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
		return place;
	return fmt::format("{}.part.{}", place, getpid());
}

[[noreturn]] void
cannot_write(const std::string &path, int why)
{
	fail("{}: cannot be written: {}", path, std::strerror(why));
}
} // namespace

output_file::output_file(const std::string &path)
	: path_(path), place_(place_of(path)), part_(part_of(place_))
{
	/* renaming would get around the permissions of a file that is there */
	if (access(place_.c_str(), W_OK) != 0 && errno != ENOENT)
		cannot_write(path_, errno);
	stream_ = std::fopen(part_.c_str(), "w");
	if (stream_ == nullptr)
		cannot_write(path_, errno);
}

output_file::~output_file()
{
	if (stream_ == nullptr)
		return;
	std::fclose(stream_);
	if (part_ != place_)
		unlink(part_.c_str());
}

void
output_file::write(const std::string &text)
{
	std::fwrite(text.data(), 1, text.size(), stream_);
	check_written();
}

void
output_file::check_written()
{
	if (ferror_unlocked(stream_))
		cannot_write(path_, errno);
}

void
output_file::finish()
{
	if (std::fflush(stream_) != 0)
		cannot_write(path_, errno);
}

void
output_file::commit()
{
	finish();
	if (part_ != place_ && std::rename(part_.c_str(), place_.c_str()) != 0)
		cannot_write(path_, errno);
	std::FILE *whole = stream_;
	stream_ = nullptr;
	if (std::fclose(whole) != 0)
		cannot_write(path_, errno);
}

void
commit_outputs(std::initializer_list<output_file *> files)
{
	flush_standard_output();
	for (output_file *file : files)
		if (file != nullptr)
			file->finish();
	for (output_file *file : files)
		if (file != nullptr) {
			file->commit();
			fmt::print("wrote {}\n", file->path());
		}
}

void
flush_standard_output()
{
	if (std::fflush(stdout) != 0)
		fail("standard output: cannot be written: {}", std::strerror(errno));
}

void
check_distinct(std::initializer_list<named_path> paths)
{
	for (const named_path &later : paths) {
		std::error_code missing;
		const auto type = std::filesystem::status(later.path, missing).type();
		if (type != std::filesystem::file_type::regular &&
			type != std::filesystem::file_type::not_found)
			continue;
		for (const named_path &earlier : paths) {
			if (&earlier == &later)
				break;
			if (same_place(earlier.path, later.path))
				refuse("{} \"{}\": is the {} file too; accepted is a file of its own",
					later.name, later.path, earlier.name);
		}
	}
}

void
write_whole_file(const std::string &path, const std::string &text)
{
	output_file file(path);
	file.write(text);
	file.commit();
}
