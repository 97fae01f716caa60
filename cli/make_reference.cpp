// SPDX-License-Identifier: MIT
// Writes the manual pages and the completion for bash into a folder: make_reference FOLDER
#include "cli/program.h"
#include "cli/reference/bash_completion.h"
#include "cli/reference/man_page.h"
#include "cli/reference/option_text.h"
#include "image/output_file.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace
{

void write(const std::string& name, const std::string& text)
{
    panoval::image::OutputFile file(name);
    file.write(text);
    file.commit();
}

} // namespace

int main(int argc, char** argv)
{
    using namespace panoval::cli;
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_reference FOLDER\n");
        return 2;
    }
    try {
        const std::string folder = argv[1];
        const auto program = describe_program();
        write(folder + "/panoval.1", program_page(*program, PANOVAL_VERSION));
        for (const CLI::App* const command : commands_of(*program))
            write(folder + "/panoval-" + command->get_name() + ".1", command_page(*program, *command, PANOVAL_VERSION));
        write(folder + "/panoval.bash", bash_completion(*program));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_reference: %s\n", error.what());
        return 1;
    }
}
