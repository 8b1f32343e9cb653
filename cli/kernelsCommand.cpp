#include "cli/kernelsCommand.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include "base/NearestNames.h"
#include "cli/CallError.h"
#include "cli/KernelListing.h"
#include "node/KernelLibraries.h"

namespace ViewTint::Cli {

namespace {

std::vector<ListedKernel> allKernels() {
    Vellum::registerKernelLibraries();
    std::vector<ListedKernel> kernels;
    for (const Vellum::Kernels::Family* family : Vellum::Kernels::families())
        for (const Vellum::Kernels::CatalogueEntry& entry : family->kernels())
            kernels.push_back({family, &entry});
    return kernels;
}

const ListedKernel& kernelNamed(const std::vector<ListedKernel>& kernels, const std::string& name) {
    std::vector<std::string> names;
    for (const ListedKernel& kernel : kernels) {
        names.emplace_back(kernel.name());
        if (names.back() == name) return kernel;
    }
    throw CallError(fmt::format("There is no kernel '{}'; the nearest are {}.", name,
                                fmt::join(Cobalt::Base::nearestNames(names, name), ", ")));
}

}  // namespace

void addKernelsCommand(CLI::App& app, CommandContext& context) {
    struct Options {
        std::string name;
        bool json = false;
        bool markdown = false;
    };
    CLI::App* command = app.add_subcommand("kernels", "Lists the kernels that do the pixel work, or shows one of them");
    const auto options = std::make_shared<Options>();
    CLI::Option* name =
        command->add_option("NAME", options->name, "Show everything about this kernel")->type_name("NAME");
    CLI::Option* json = command->add_flag("--json", options->json, "Print JSON");
    command->add_flag("--markdown", options->markdown, "Print the page for the documentation")
        ->excludes(name)
        ->excludes(json);
    command->callback([&context, options] {
        context.work = [options] {
            const std::vector<ListedKernel> kernels = allKernels();
            if (!options->name.empty()) {
                const ListedKernel& kernel = kernelNamed(kernels, options->name);
                options->json ? printJson(kernel) : printDetails(kernel);
            } else if (options->markdown) {
                printMarkdown(kernels);
            } else {
                options->json ? printJson(kernels) : printTable(kernels);
            }
            return exitFine;
        };
    });
}

}  // namespace ViewTint::Cli
