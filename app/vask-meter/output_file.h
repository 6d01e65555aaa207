/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef VASK_METER_OUTPUT_FILE_H
#define VASK_METER_OUTPUT_FILE_H

#include <cstdio>
#include <initializer_list>
#include <string>

/**
 * A file that is whole or not there: it is written beside its place under another name, and put there at
 * last. A device or a pipe is written as itself. A file that stood there before stays until then.
 */
class output_file
{
      public:
	/** @throws vask_meter_error: cannot be written. */
	explicit output_file(const std::string &path);
	/** Removes what was written, unless commit() put it in place. */
	~output_file();
	output_file(const output_file &) = delete;
	output_file &operator=(const output_file &) = delete;

	/** The file's until commit(); write to it or with write(). */
	std::FILE *stream()
	{
		return stream_;
	}
	/** As it was given. */
	const std::string &path() const
	{
		return path_;
	}

	/** @throws vask_meter_error: cannot be written, a full disk say. */
	void write(const std::string &text);
	/** To be called right after something wrote to stream(). @throws as write() */
	void check_written();

	/** All is written. @throws vask_meter_error: it could not be. */
	void finish();
	/** Finishes, and puts the file in place. @throws vask_meter_error: cannot be written or renamed. */
	void commit();

      private:
	std::string path_, place_, part_;
	std::FILE *stream_;
};

/** Writes what was printed. @throws vask_meter_error: it cannot be. */
void flush_standard_output();

/**
 * Puts a command's files in place, none before all are written, and prints their names. Null stands for one
 * that was not asked for.
 *
 * @throws vask_meter_error: cannot be written, or standard output cannot.
 */
void commit_outputs(std::initializer_list<output_file *> files);

/** A file that a command was given, by the name of its option or argument; empty when it was not. */
struct named_path {
	const char *name;
	const std::string &path;
};

/** @throws vask_meter_error when two of them are one file; devices and pipes may be named twice. */
void check_distinct(std::initializer_list<named_path> paths);

/** Writes a text file in one go. @throws vask_meter_error */
void write_whole_file(const std::string &path, const std::string &text);

#endif /* VASK_METER_OUTPUT_FILE_H */
