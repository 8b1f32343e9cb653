// Makes C++ source of a family's GPU text: one text for each variant, deflated, equal texts once.
//
//   packKernels FAMILY [FAMILY.ptx] OUTPUT.cpp
//
// A compiler gives one text for the whole family, with entry points "vt3_<kernel>_<tuple>" and "vt4_<kernel>" (the
// fold of a reduction). A variant's text is the header, the module's data that it refers to, its body and its kernel's
// fold, under the names that the parameter record has: "o<id>3" and "o<id>4". Without a text the family has none.
#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "compute/Hash.h"

namespace {

using Text = std::string;

Text readFile(const Text& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot read '" + path + "'");
    std::ostringstream all;
    all << stream.rdbuf();
    return all.str();
}

/// Without comments, blank lines and blanks at the ends of lines.
Text tidied(const Text& text) {
    std::istringstream lines(text);
    Text result, line;
    while (std::getline(lines, line)) {
        line.erase(std::min(line.find("//"), line.size()));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        if (!line.empty()) result += line + "\n";
    }
    return result;
}

Text replaceAll(const Text& text, const Text& from, const Text& to) {
    Text result;
    std::size_t begin = 0;
    for (std::size_t at; (at = text.find(from, begin)) != Text::npos; begin = at + from.size())
        result += text.substr(begin, at - begin) + to;
    return result + text.substr(begin);
}

/// Labels carry the number of the function in its file; without it the texts of like variants are equal.
Text withoutFunctionNumbers(Text text) {
    for (const Text stem : {"L__BB", "LBB", "__local_depot"}) {
        for (std::size_t at = 0; (at = text.find(stem, at)) != Text::npos;) {
            at += stem.size();
            std::size_t end = at;
            while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])))
                ++end;
            text.replace(at, end - at, "0");
        }
    }
    return text;
}

struct EntryPoint {
    Text name;
    Text text;
};

/// A file's text in its parts.
struct Module {
    Text header;             ///< .version, .target, .address_size
    std::vector<Text> data;  ///< module-level variables
    std::vector<EntryPoint> entries;

    explicit Module(const Text& text) {
        for (std::size_t at = 0; at < text.size();) {
            if (text.compare(at, entryWord.size(), entryWord) == 0)
                at = addEntry(text, at);
            else
                at = addItem(text, at);
        }
        if (header.empty() || entries.empty()) throw std::runtime_error("the text holds no entry points");
    }

private:
    static constexpr std::string_view entryWord = ".visible .entry ";

    std::size_t addEntry(const Text& text, std::size_t at) {
        const std::size_t nameBegin = at + entryWord.size();
        const std::size_t nameEnd = text.find('(', nameBegin);
        std::size_t end = text.find('{', nameEnd);
        for (int depth = 0; end < text.size();) {
            depth += (text[end] == '{') - (text[end] == '}');
            ++end;
            if (depth == 0) break;
        }
        entries.push_back({text.substr(nameBegin, nameEnd - nameBegin), text.substr(at, end - at) + "\n"});
        return std::min(text.find_first_not_of('\n', end), text.size());
    }
    std::size_t addItem(const Text& text, std::size_t at) {
        const std::size_t lineEnd = std::min(text.find('\n', at), text.size());
        const Text line = text.substr(at, lineEnd - at);
        if (line.starts_with(".version") || line.starts_with(".target") || line.starts_with(".address_size")) {
            header += line + "\n";
            return lineEnd + 1;
        }
        if (!line.starts_with(".global") && !line.starts_with(".const"))
            throw std::runtime_error("cannot pack '" + line + "': a body must be inlined whole");
        const std::size_t end = text.find(';', at) + 1;
        data.push_back(text.substr(at, end - at) + "\n");
        return std::min(text.find_first_not_of('\n', end), text.size());
    }
};

/// The name that a module-level variable declares.
Text nameOf(const Text& data) {
    const std::size_t end = data.find_first_of("[=;");
    const std::size_t last = data.find_last_not_of(" \t\n", end - 1);
    const std::size_t before = data.find_last_of(" \t", last);
    return data.substr(before + 1, last - before);
}

std::vector<unsigned char> deflated(const Text& text) {
    uLongf size = compressBound(text.size());
    std::vector<unsigned char> stream(size);
    if (compress2(stream.data(), &size, reinterpret_cast<const Bytef*>(text.data()), text.size(), Z_BEST_COMPRESSION) !=
        Z_OK)
        throw std::runtime_error("cannot deflate");
    stream.resize(size);
    return stream;
}

struct Variant {
    Text kernel, tuple, text;
};

std::vector<Variant> variantsOf(const Module& module) {
    constexpr std::string_view body = "vt3_", fold = "vt4_";
    const auto named = [](const EntryPoint& entry, const Text& kernel, char role) {
        const Text name = "o" + Vellum::Kernels::hexadecimal(Vellum::Kernels::nameHash(kernel)) + role;
        return withoutFunctionNumbers(replaceAll(entry.text, entry.name, name));
    };
    std::map<Text, Text> folds;
    for (const EntryPoint& entry : module.entries) {
        if (!entry.name.starts_with(fold)) continue;
        const Text kernel = entry.name.substr(fold.size());
        const bool storesAnything = entry.text.find("st.") != Text::npos;  // that of a kernel with one pass doesn't
        if (storesAnything) folds[kernel] = named(entry, kernel, '4');
    }
    std::vector<Variant> variants;
    for (const EntryPoint& entry : module.entries) {
        if (!entry.name.starts_with(body)) continue;
        const std::size_t middle = entry.name.find('_', body.size());
        Variant variant{entry.name.substr(body.size(), middle - body.size()), entry.name.substr(middle + 1), ""};
        const Text code = named(entry, variant.kernel, '3') + folds[variant.kernel];
        variant.text = module.header;
        for (const Text& data : module.data)
            if (code.find(nameOf(data)) != Text::npos) variant.text += data;
        variant.text += code;
        variants.push_back(std::move(variant));
    }
    return variants;
}

void write(std::ostream& out, const Text& family, const std::vector<Variant>& variants) {
    out << "#include \"compute/StoredTexts.h\"\n\nnamespace Vellum::Kernels {\n\n";
    std::map<Text, int> numbers;
    std::map<int, std::size_t> sizes;
    for (const Variant& variant : variants) {
        const auto [place, isNew] = numbers.try_emplace(variant.text, static_cast<int>(numbers.size()));
        if (!isNew) continue;
        const auto stream = deflated(variant.text);
        sizes[place->second] = stream.size();
        out << "static const unsigned char text" << place->second << "[] = {";
        for (std::size_t i = 0; i < stream.size(); ++i)
            out << (i % 32 == 0 ? "\n" : "") << int{stream[i]} << ",";
        out << "};\n";
    }
    if (!variants.empty()) out << "static const StoredText texts[] = {\n";
    for (const Variant& variant : variants) {
        const int number = numbers[variant.text];
        out << "    {\"" << variant.kernel << "\", \"" << variant.tuple << "\", text" << number << ", " << sizes[number]
            << ", " << variant.text.size() << "},\n";
    }
    if (!variants.empty()) out << "};\n";
    out << "\nextern const StoredTexts " << family << "_texts;\nconst StoredTexts " << family << "_texts{"
        << (variants.empty() ? "nullptr" : "texts") << ", " << variants.size()
        << "};\n\n}  // namespace Vellum::Kernels\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: packKernels FAMILY [FAMILY.ptx] OUTPUT.cpp\n";
        return 2;
    }
    const Text output = argv[argc - 1];
    try {
        const auto variants = argc == 4 ? variantsOf(Module(tidied(readFile(argv[2])))) : std::vector<Variant>{};
        std::ofstream stream(output, std::ios::binary);
        write(stream, argv[1], variants);
        if (!stream.flush()) throw std::runtime_error("cannot write '" + output + "'");
    } catch (const std::exception& error) {
        std::cerr << "packKernels " << argv[1] << ": " << error.what() << "\n";
        std::remove(output.c_str());
        return 1;
    }
}
