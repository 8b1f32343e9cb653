#pragma once

#include <span>
#include <string_view>

#include "compute/Catalogue.h"

namespace ViewTint::Cli {

/// A kernel of the catalogue and where it comes from.
struct ListedKernel {
    const Vellum::Kernels::Family* family;
    const Vellum::Kernels::CatalogueEntry* entry;

    std::string_view name() const { return entry->declaration().name; }
};

/// One line a kernel, for a terminal.
void printTable(std::span<const ListedKernel> kernels);
/// A page with a table for each library.
void printMarkdown(std::span<const ListedKernel> kernels);
void printDetails(const ListedKernel& kernel);
void printJson(std::span<const ListedKernel> kernels);
void printJson(const ListedKernel& kernel);

}  // namespace ViewTint::Cli
