#include "compute/ParameterRecord.h"

#include <algorithm>
#include <string_view>

#include "compute/Catalogue.h"
#include "compute/Exception.h"
#include "compute/Hash.h"

namespace Vellum::Kernels {

namespace {

enum class Suffix { never, ofImageFields };
constexpr std::string_view imageFields[] = {"rangedAxisMask", "rangeMin", "rangeMax", "constEdgeColor"};

std::string hashedName(std::string_view name) {
    return "o" + hexadecimal(nameHash(name));
}

std::uint32_t elementBytes(ScalarType type) {
    return type == ScalarType::boolean ? 1 : 4;
}

class Writer {
public:
    void name(const char*, const std::string& name, Suffix = Suffix::never) {
        number(name.size(), 8);
        for (const char letter : name)
            bytes_.push_back(static_cast<std::byte>(letter));
    }
    template <class T>
    void word(const char*, T value, std::uint32_t = 0, std::uint32_t = 0) {
        number(static_cast<std::uint32_t>(value), 4);
    }
    void octet(const char*, bool value) { number(value, 1); }
    void zero(const char*, int width) { number(0, width); }
    template <class Items, class Transfer>
    void list(const char*, const Items& items, Transfer transfer) {
        number(items.size(), 8);
        for (const auto& item : items)
            transfer(item);
    }

    std::vector<std::byte> take() { return std::move(bytes_); }

private:
    void number(std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i)
            bytes_.push_back(static_cast<std::byte>(value >> 8 * i));
    }

    std::vector<std::byte> bytes_;
};

class Reader {
public:
    explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    void name(const char* field, std::string& name, Suffix suffix = Suffix::never) {
        const auto text = take(field, number(field, 8));
        name.assign(reinterpret_cast<const char*>(text.data()), text.size());
        if (!isHashedName(name, suffix)) damaged(field, "it is \"" + name + "\", not a hashed name");
    }
    template <class T>
    void word(const char* field, T& value, std::uint32_t lowest = 0, std::uint32_t highest = ~0u) {
        const std::uint64_t read = number(field, 4);
        if (read < lowest || read > highest)
            damaged(field, "it is " + std::to_string(read) + ", not " + std::to_string(lowest) + " to " +
                               std::to_string(highest));
        value = static_cast<T>(read);
    }
    void octet(const char* field, bool& value) {
        const std::uint64_t read = number(field, 1);
        if (read > 1) damaged(field, "it is " + std::to_string(read) + ", not 0 or 1");
        value = read != 0;
    }
    void zero(const char* field, int width) {
        if (const auto read = number(field, width)) damaged(field, "it is " + std::to_string(read) + ", not 0");
    }
    template <class Items, class Transfer>
    void list(const char* item, Items& items, Transfer transfer) {
        std::uint64_t left = number((std::string(item) + " count").c_str(), 8);
        item_ = item;
        number_ = 0;
        // Every item takes bytes, so that a false count ends at the end of the record.
        for (; left > 0; --left) {
            ++number_;
            transfer(items.emplace_back());
        }
        item_ = nullptr;
    }

    void end() const {
        if (!bytes_.empty()) damaged("end", std::to_string(bytes_.size()) + " bytes follow it");
    }
    [[noreturn]] void damaged(const char* field, const std::string& reason) const {
        const std::string item = item_ ? " of " + std::string(item_) + " " + std::to_string(number_) : "";
        Vellum::Compute::fail("The parameter record of a kernel is damaged at \"" + std::string(field) + "\"" + item +
                              ": " + reason + ".");
    }

private:
    std::span<const std::byte> take(const char* field, std::uint64_t count) {
        if (count > bytes_.size())
            damaged(field, "the record ends " + std::to_string(count - bytes_.size()) + " bytes too early");
        const auto taken = bytes_.first(count);
        bytes_ = bytes_.subspan(count);
        return taken;
    }
    std::uint64_t number(const char* field, int width) {
        std::uint64_t value = 0;
        int place = 0;
        for (const std::byte byte : take(field, width))
            value |= std::to_integer<std::uint64_t>(byte) << 8 * place++;
        return value;
    }
    static bool isHashedName(std::string_view name, Suffix suffix) {
        if (!name.starts_with('o')) return false;
        // Both lengths are tried, because a suffix may begin with a letter that is a digit too.
        for (const std::size_t digits : {15, 16}) {
            if (name.size() <= digits || name[1] == '0') continue;
            const std::string_view rest = name.substr(1 + digits);
            const bool fieldOfImage =
                suffix == Suffix::ofImageFields && std::ranges::find(imageFields, rest) != std::end(imageFields);
            if (name.substr(1, digits).find_first_not_of("0123456789abcdef") == name.npos &&
                (rest.empty() || fieldOfImage))
                return true;
        }
        return false;
    }

    std::span<const std::byte> bytes_;
    const char* item_ = nullptr;
    int number_ = 0;
};

/// The record's fields in their order, for both directions.
template <class Stream, class Record>
void transfer(Stream& stream, Record& record) {
    stream.name("kernel id", record.kernelId);
    stream.word("passes", record.passes, 1, 2);
    stream.word("per component", record.perComponent, 0, 1);
    stream.word("parameter block size", record.parameterBlockBytes);
    stream.word("accumulator block size", record.accumulatorBlockBytes);
    stream.list("image", record.images, [&](auto& image) {
        stream.name("name", image.name);
        stream.word("written", image.written, 0, 1);
        stream.word("pattern", image.pattern, 1, 4);
    });
    stream.list("scalar", record.scalars, [&](auto& scalar) {
        stream.name("id", scalar.id);
        stream.name("name", scalar.name);
        stream.word("size", scalar.bytes);
        stream.word("offset", scalar.offset);
        stream.word("count", scalar.count, 1, 4);
        stream.word("type", scalar.type, 1, 4);
        stream.octet("in accumulator", scalar.inAccumulator);
        stream.word("vector width", scalar.vectorWidth, 1, 4);
        stream.word("array length", scalar.arrayLength, 1);
    });
    stream.list("hidden field", record.hidden, [&](auto& field) {
        stream.name("name", field.name, Suffix::ofImageFields);
        stream.word("size", field.bytes);
        stream.zero("reserved", 4);
        stream.word("offset", field.offset);
        stream.word("type", field.type, 1, 4);
        stream.word("vector width", field.vectorWidth, 1, 4);
        stream.word("array length", field.arrayLength, 1);
    });
    stream.zero("terminator", 8);
}

/// A loader trusts these: each field has the size that its type gives and lies in its block.
template <class Field>
void checkField(const Reader& reader, const Field& field, std::uint32_t blockBytes) {
    if (field.type != ScalarType::real && field.type != ScalarType::integer && field.type != ScalarType::boolean)
        reader.damaged("type", "there is no type " + std::to_string(static_cast<int>(field.type)));
    if (std::uint64_t{elementBytes(field.type)} * field.vectorWidth * field.arrayLength != field.bytes)
        reader.damaged("size", field.name + " has " + std::to_string(field.bytes) + " bytes, which its type doesn't");
    if (std::uint64_t{field.offset} + field.bytes > blockBytes)
        reader.damaged("offset", field.name + " reaches out of its block of " + std::to_string(blockBytes) + " bytes");
}

ParameterRecord::Scalar scalarOf(const char* kernel, const ScalarDeclaration& scalar, bool inAccumulator) {
    return {hashedName(std::string(kernel) + "." + scalar.name),
            hashedName(scalar.name),
            static_cast<std::uint32_t>(scalar.bytes),
            static_cast<std::uint32_t>(scalar.offset),
            static_cast<std::uint32_t>(scalar.vectorWidth),
            scalar.type,
            inAccumulator,
            static_cast<std::uint32_t>(scalar.vectorWidth),
            static_cast<std::uint32_t>(scalar.arrayLength)};
}

/// `at`: where the image's ImageParameters begin in the block.
void addImageFields(std::vector<ParameterRecord::Hidden>& hidden, const ImageDeclaration& image, std::uint32_t at) {
    const auto add = [&](const char* field, std::size_t offset, ScalarType type, std::uint32_t width) {
        hidden.push_back({hashedName(image.name) + field, elementBytes(type) * width,
                          at + static_cast<std::uint32_t>(offset), type, width, 1});
    };
    const bool onOneAxis = image.pattern == Pattern::axis;
    if (onOneAxis) add("rangedAxisMask", offsetof(ImageParameters, rangedAxisMask), ScalarType::integer, 1);
    if (onOneAxis || image.pattern == Pattern::rectangle) {
        add("rangeMin", offsetof(ImageParameters, rangeMin), ScalarType::integer, onOneAxis ? 1 : 2);
        add("rangeMax", offsetof(ImageParameters, rangeMax), ScalarType::integer, onOneAxis ? 1 : 2);
    }
    if (image.edge == EdgeMethod::constant)
        add("constEdgeColor", offsetof(ImageParameters, constEdgeColor), ScalarType::real, 4);
}

}  // namespace

ParameterRecord ParameterRecord::of(const CatalogueEntry& entry) {
    const KernelDeclaration& kernel = entry.declaration();
    ParameterRecord record;
    record.kernelId = hashedName(kernel.name);
    record.passes = static_cast<std::uint32_t>(kernel.passes);
    record.perComponent = kernel.perComponent;
    record.parameterBlockBytes = entry.hasParameterBlock() ? static_cast<std::uint32_t>(entry.parameterBytes()) : 0;
    record.accumulatorBlockBytes = static_cast<std::uint32_t>(kernel.accumulatorBytes);
    for (int i = 0; i < kernel.scalars.count; ++i)
        record.scalars.push_back(scalarOf(kernel.name, kernel.scalars.list[i], false));
    for (int i = 0; i < kernel.accumulators.count; ++i)
        record.scalars.push_back(scalarOf(kernel.name, kernel.accumulators.list[i], true));
    for (int i = 0; i < kernel.images.count; ++i) {
        const ImageDeclaration& image = kernel.images.list[i];
        record.images.push_back({hashedName(image.name), image.written, image.pattern});
        addImageFields(record.hidden, image,
                       static_cast<std::uint32_t>(entry.imageParametersOffset() + i * int{sizeof(ImageParameters)}));
    }
    for (int i = 0; i < kernel.derived.count; ++i) {
        const ScalarDeclaration& field = kernel.derived.list[i];
        record.hidden.push_back(
            {hashedName(field.name), static_cast<std::uint32_t>(field.bytes), static_cast<std::uint32_t>(field.offset),
             field.type, static_cast<std::uint32_t>(field.vectorWidth), static_cast<std::uint32_t>(field.arrayLength)});
    }
    return record;
}

std::vector<std::byte> ParameterRecord::toBytes() const {
    Writer writer;
    transfer(writer, *this);
    return writer.take();
}

ParameterRecord ParameterRecord::parse(std::span<const std::byte> bytes) {
    Reader reader(bytes);
    ParameterRecord record;
    transfer(reader, record);
    reader.end();
    for (const Scalar& scalar : record.scalars) {
        checkField(reader, scalar, scalar.inAccumulator ? record.accumulatorBlockBytes : record.parameterBlockBytes);
        if (scalar.count != scalar.vectorWidth) reader.damaged("count", scalar.name + " has another vector width");
    }
    for (const Hidden& field : record.hidden)
        checkField(reader, field, record.parameterBlockBytes);
    return record;
}

const ParameterRecord::Scalar* ParameterRecord::scalar(std::uint64_t nameHash) const {
    const auto found = std::ranges::find(scalars, "o" + hexadecimal(nameHash), &Scalar::name);
    return found == scalars.end() ? nullptr : &*found;
}

}  // namespace Vellum::Kernels
