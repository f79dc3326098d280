#pragma once

#include <string>
#include <vector>

// The program's start and shutdown: the steps of main, in their order.
// Threads: main thread.

// The command line as the program acts on it: the arguments joined with
// single blanks, no quotes added. Unless it is empty, "-hide" or
// "AppRunAtTime", a relative file path is made absolute against
// `working_folder`, so that a running instance (whose working folder may be
// another) finds the file.
std::wstring compose_command_line(const std::vector<std::string>& args, const std::wstring& working_folder);

// The whole life of the program; returns the process's exit code.
int run_quillaphonics(const std::vector<std::string>& args);
