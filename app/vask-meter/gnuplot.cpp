/* SPDX-License-Identifier: BSD-3-Clause */
#include "gnuplot.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "error.h"

namespace
{
/* A folder for the time of a run. */
class scratch_folder
{
      public:
	scratch_folder()
	{
		std::string name =
			(std::filesystem::temp_directory_path() / "vask-meter.XXXXXX").string();
		if (mkdtemp(name.data()) == nullptr)
			fail("{}: {}", name, std::strerror(errno));
		path = name;
	}
	~scratch_folder()
	{
		std::error_code ignored;
		std::filesystem::remove_all(path, ignored);
	}
	scratch_folder(const scratch_folder &) = delete;
	scratch_folder &operator=(const scratch_folder &) = delete;

	std::filesystem::path path;
};

void
run_gnuplot(const std::filesystem::path &script)
{
	std::string program = "gnuplot", file = script.string();
	char *argv[] = {program.data(), file.data(), nullptr};
	pid_t child;
	int status;

	if (posix_spawnp(&child, "gnuplot", nullptr, nullptr, argv, environ) != 0)
		fail("the report's charts need gnuplot, which is not installed (Debian: gnuplot-nox)");
	while (waitpid(child, &status, 0) < 0 && errno == EINTR)
		;
	if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
		fail("gnuplot failed on the report's charts");
}

/* The element without the document around it. */
std::string
svg_of(const std::filesystem::path &file)
{
	std::ifstream in(file);
	std::ostringstream text;
	text << in.rdbuf();
	const std::string document = text.str();
	const size_t start = document.find("<svg");
	if (start == std::string::npos)
		fail("gnuplot left no chart");
	return document.substr(start);
}
} // namespace

std::vector<std::string>
gnuplot_svgs(const std::vector<std::string> &scripts)
{
	const scratch_folder folder;
	std::vector<std::string> svgs;
	const auto file = [&folder](size_t i) {
		return folder.path / fmt::format("{}.svg", i);
	};

	{
		std::ofstream script(folder.path / "script");
		for (size_t i = 0; i < scripts.size(); i++)
			script << fmt::format(
					  "reset\nset terminal svg size 720,280 dynamic font 'sans-serif,13' "
					  "name 'chart{}'\nset output '{}'\n",
					  i, file(i).string())
			       << scripts[i] << "unset output\n";
		if (!script.flush())
			fail("{}: {}", folder.path.string(), std::strerror(errno));
	}
	run_gnuplot(folder.path / "script");
	for (size_t i = 0; i < scripts.size(); i++)
		svgs.push_back(svg_of(file(i)));
	return svgs;
}
