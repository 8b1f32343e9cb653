#include "cli/KernelListing.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "cli/Json.h"
#include "cli/Printing.h"
#include "compute/ParameterRecord.h"
#include "compute/PrecompiledKernels.h"

namespace ViewTint::Cli {

namespace {

using Vellum::Kernels::CatalogueEntry;
using Vellum::Kernels::ImageDeclaration;
using Vellum::Kernels::ImageDeclarations;
using Vellum::Kernels::ScalarDeclaration;
using Vellum::Kernels::ScalarDeclarations;
using Vellum::Kernels::ScalarType;
using Texts = std::vector<std::string>;

std::span<const ImageDeclaration> listed(const ImageDeclarations& images) {
    return {images.list, static_cast<std::size_t>(images.count)};
}

std::span<const ScalarDeclaration> listed(const ScalarDeclarations& scalars) {
    return {scalars.list, static_cast<std::size_t>(scalars.count)};
}

std::string joined(const Texts& texts, const char* between = ", ") {
    return fmt::format("{}", fmt::join(texts, between));
}

template <class Items, class Describe>
Texts texts(const Items& items, Describe describe) {
    Texts list;
    std::ranges::transform(items, std::back_inserter(list), describe);
    return list;
}

std::string nameOf(const ScalarDeclaration& scalar) {
    return scalar.name;
}

const char* accessOf(const ImageDeclaration& image) {
    return image.written ? "write" : "read";
}

const char* bodyOf(const CatalogueEntry& entry) {
    return entry.declaration().perComponent ? "component" : "pixel";
}

std::string imagesOf(const CatalogueEntry& entry) {
    return joined(texts(listed(entry.declaration().images), [](const ImageDeclaration& image) {
        return fmt::format("{} {} {}", accessOf(image), image.name, toString(image.pattern));
    }));
}

Texts tuplesOf(const CatalogueEntry& entry) {
    return texts(entry.tuples(), [](const auto& tuple) { return tuple.text(); });
}

/// "3f_3f, 3f_4f", or "1f_1f to 4f_4f (16)" where there are many.
std::string shortTuplesOf(const CatalogueEntry& entry) {
    const Texts tuples = tuplesOf(entry);
    constexpr std::size_t few = 4;
    return tuples.size() <= few ? joined(tuples)
                                : fmt::format("{} to {} ({})", tuples.front(), tuples.back(), tuples.size());
}

/// Calls visit(float), visit(int) or visit(bool) for each element of a scalar's default.
template <class Visit>
void visitDefault(const CatalogueEntry& entry, const ScalarDeclaration& scalar, Visit visit) {
    const auto block = defaultParameters(entry.declaration());
    const auto element = [&](int i, auto value) {
        std::memcpy(&value, block.data() + scalar.offset + i * sizeof value, sizeof value);
        visit(value);
    };
    for (int i = 0; i < scalar.vectorWidth * scalar.arrayLength; ++i) {
        if (scalar.type == ScalarType::real)
            element(i, float{});
        else if (scalar.type == ScalarType::integer)
            element(i, int{});
        else
            element(i, bool{});
    }
}

std::string typeOf(const ScalarDeclaration& scalar) {
    return typeText(scalar.type, scalar.vectorWidth * scalar.arrayLength);
}

/// "float[9] matrix"
std::string declared(const ScalarDeclaration& scalar) {
    return fmt::format("{} {}", typeOf(scalar), scalar.name);
}

/// "float[9] matrix = 1 0 0 0 1 0 0 0 1", or a single value where all are the same.
std::string declaredWithDefault(const CatalogueEntry& entry, const ScalarDeclaration& scalar) {
    Texts values;
    visitDefault(entry, scalar, [&](auto value) { values.push_back(fmt::format("{}", value)); });
    const bool allSame = std::ranges::count(values, values.front()) == std::ssize(values);
    return declared(scalar) + " = " + (allSame ? values.front() : joined(values, " "));
}

Texts scalarsWithDefaults(const CatalogueEntry& entry) {
    return texts(listed(entry.declaration().scalars),
                 [&](const ScalarDeclaration& scalar) { return declaredWithDefault(entry, scalar); });
}

/// The variants that are registered.
Texts keysOf(const CatalogueEntry& entry) {
    Texts keys;
    for (int variant = 0; variant < std::ssize(entry.tuples()); ++variant)
        for (const auto target : Vellum::Kernels::kernelTargets)
            if (const auto key = entry.key(variant, target).text(); Vellum::JIT::findPrecompiledKernel(key))
                keys.push_back(key);
    return keys;
}

std::size_t recordBytes(const CatalogueEntry& entry) {
    return Vellum::Kernels::ParameterRecord::of(entry).toBytes().size();
}

int parameterBlockBytes(const CatalogueEntry& entry) {
    return entry.hasParameterBlock() ? entry.parameterBytes() : 0;
}

Json toJson(const ScalarDeclaration& scalar, const CatalogueEntry* defaultsOf) {
    std::vector<std::pair<std::string, Json>> members{
        {"name", Json::text(scalar.name)},
        {"type", Json::text(toString(scalar.type))},
        {"elements", Json::integer(scalar.vectorWidth * scalar.arrayLength)}};
    if (defaultsOf) {
        std::vector<Json> values;
        visitDefault(*defaultsOf, scalar, [&](auto value) {
            if constexpr (std::is_same_v<decltype(value), float>)
                values.push_back(Json::number(value));
            else if constexpr (std::is_same_v<decltype(value), bool>)
                values.push_back(Json::boolean(value));
            else
                values.push_back(Json::integer(value));
        });
        members.emplace_back("default", values.size() == 1 ? values.front() : Json::array(values));
    }
    return Json::object(members);
}

Json toJson(const ScalarDeclarations& scalars, const CatalogueEntry* defaultsOf) {
    std::vector<Json> list;
    for (const ScalarDeclaration& scalar : listed(scalars))
        list.push_back(toJson(scalar, defaultsOf));
    return Json::array(list);
}

Json toJson(const ListedKernel& kernel) {
    const CatalogueEntry& entry = *kernel.entry;
    const auto& declaration = entry.declaration();
    std::vector<Json> images;
    for (const ImageDeclaration& image : listed(declaration.images))
        images.push_back(Json::object({{"name", Json::text(image.name)},
                                       {"access", Json::text(accessOf(image))},
                                       {"pattern", Json::text(toString(image.pattern))},
                                       {"edge", Json::text(toString(image.edge))}}));
    return Json::object({{"name", Json::text(kernel.name())},
                         {"library", Json::text(kernel.family->library())},
                         {"family", Json::text(kernel.family->name())},
                         {"images", Json::array(images)},
                         {"per_component", Json::boolean(declaration.perComponent)},
                         {"passes", Json::integer(declaration.passes)},
                         {"scalars", toJson(declaration.scalars, &entry)},
                         {"derived", toJson(declaration.derived, nullptr)},
                         {"accumulators", toJson(declaration.accumulators, nullptr)},
                         {"parameter_block_bytes", Json::integer(parameterBlockBytes(entry))},
                         {"accumulator_block_bytes", Json::integer(declaration.accumulatorBytes)},
                         {"record_bytes", Json::integer(static_cast<long long>(recordBytes(entry)))},
                         {"pixel_types", Json::array(tuplesOf(entry))},
                         {"keys", Json::array(keysOf(entry))}});
}

}  // namespace

void printTable(std::span<const ListedKernel> kernels) {
    using Row = std::array<std::string, 6>;
    std::vector<Row> rows{{"KERNEL", "LIBRARY/FAMILY", "PASSES", "PIXEL TYPES", "IMAGES", "SCALARS"}};
    for (const ListedKernel& kernel : kernels)
        rows.push_back({std::string(kernel.name()),
                        fmt::format("{}/{}", kernel.family->library(), kernel.family->name()),
                        std::to_string(kernel.entry->declaration().passes), shortTuplesOf(*kernel.entry),
                        imagesOf(*kernel.entry), joined(texts(listed(kernel.entry->declaration().scalars), nameOf))});
    std::array<std::size_t, 6> widths{};
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += fmt::format("{:<{}}  ", row[i], widths[i]);
        print("{}\n", line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

void printMarkdown(std::span<const ListedKernel> kernels) {
    print(
        "<!-- Written by \"./dev docs\" from the kernels' declarations. -->\n"
        "# Kernel catalogue\n\n"
        "{} kernels. `viewtint kernels NAME` tells more about one of them; [kernels.md](kernels.md) explains the "
        "words.\n",
        kernels.size());
    std::string_view library;
    for (const ListedKernel& kernel : kernels) {
        if (kernel.family->library() != library) {
            library = kernel.family->library();
            print(
                "\n## {}\n\n| Kernel | Family | Body | Passes | Images | Pixel types | Scalars | Results |\n"
                "|---|---|---|---|---|---|---|---|\n",
                library);
        }
        const CatalogueEntry& entry = *kernel.entry;
        print("| `{}` | {} | {} | {} | {} | {} | {} | {} |\n", kernel.name(), kernel.family->name(), bodyOf(entry),
              entry.declaration().passes, imagesOf(entry), joined(tuplesOf(entry)), joined(scalarsWithDefaults(entry)),
              joined(texts(listed(entry.declaration().accumulators), declared)));
    }
}

void printDetails(const ListedKernel& kernel) {
    const CatalogueEntry& entry = *kernel.entry;
    const auto& declaration = entry.declaration();
    const auto section = [](const char* title, const Texts& lines) {
        if (!lines.empty()) print("{}:\n  {}\n", title, joined(lines, "\n  "));
    };
    print("{}: {}/{}, one body for each {}, {}\n", kernel.name(), kernel.family->library(), kernel.family->name(),
          bodyOf(entry), declaration.passes == 1 ? "one pass" : "two passes");
    section("images", texts(listed(declaration.images), [](const ImageDeclaration& image) {
                return fmt::format("{:<5} {}, {}, edge {}", accessOf(image), image.name, toString(image.pattern),
                                   toString(image.edge));
            }));
    section("scalars", scalarsWithDefaults(entry));
    section("derived values", texts(listed(declaration.derived), declared));
    section("results", texts(listed(declaration.accumulators), declared));
    print("parameter block: {} bytes\naccumulator block: {} bytes\nparameter record: {} bytes\n",
          parameterBlockBytes(entry), declaration.accumulatorBytes, recordBytes(entry));
    section("pixel types", {joined(tuplesOf(entry), " ")});
    section("keys", keysOf(entry));
}

void printJson(std::span<const ListedKernel> kernels) {
    std::vector<Json> list;
    for (const ListedKernel& kernel : kernels)
        list.push_back(toJson(kernel));
    print("{}\n", Json::array(list).str());
}

void printJson(const ListedKernel& kernel) {
    print("{}\n", toJson(kernel).str());
}

}  // namespace ViewTint::Cli
