/* SPDX-License-Identifier: BSD-3-Clause */
#include "gnuplot.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
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

std::string
last_line(const std::string &file)
{
	std::ifstream in(file);
	std::string line, last;
	while (std::getline(in, line))
		if (!line.empty())
			last = line;
	return last;
}

void
run_gnuplot(const std::filesystem::path &script)
{
	std::string program = "gnuplot", file = script.string();
	char *argv[] = {program.data(), file.data(), nullptr};
	pid_t child;
	int status;

	/* it warns of charts without a packet, which are none of the reader's business */
	const std::string said = script.string() + ".stderr";
	posix_spawn_file_actions_t actions;
	posix_spawn_file_actions_init(&actions);
	posix_spawn_file_actions_addopen(
		&actions, STDERR_FILENO, said.c_str(), O_WRONLY | O_CREAT, 0600);
	const int rc = posix_spawnp(&child, "gnuplot", &actions, nullptr, argv, environ);
	posix_spawn_file_actions_destroy(&actions);
	if (rc != 0)
		fail("the report's charts need gnuplot, which is not installed (Debian: gnuplot-nox)");
	while (waitpid(child, &status, 0) < 0 && errno == EINTR)
		;
	if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
		fail("gnuplot failed on the report's charts: {}", last_line(said));
}

/* Black where gnuplot has a colour of its own for text and axes: the page's text may be light on dark. */
std::string
with_text_colour(std::string svg)
{
	for (const char *black : {"\"black\"", "'black'", "'rgb(  0,   0,   0)'"})
		for (size_t at = svg.find(black); at != std::string::npos; at = svg.find(black, at))
			svg.replace(at, std::strlen(black), "\"currentColor\"");
	return svg;
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
	return with_text_colour(document.substr(start));
}
} // namespace

std::vector<std::string>
gnuplot_svgs(const std::vector<gnuplot_script> &scripts)
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
					  "reset\nset terminal svg size {},{} dynamic font 'sans-serif,13' "
					  "name 'chart{}'\nset output '{}'\n",
					  scripts[i].width, scripts[i].height, i, file(i).string())
			       << scripts[i].text << "unset output\n";
		if (!script.flush())
			fail("{}: {}", folder.path.string(), std::strerror(errno));
	}
	run_gnuplot(folder.path / "script");
	for (size_t i = 0; i < scripts.size(); i++)
		svgs.push_back(svg_of(file(i)));
	return svgs;
}
