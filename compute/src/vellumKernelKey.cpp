#include "compute/KernelKey.h"

#include <charconv>

#include "compute/Catalogue.h"
#include "compute/Device.h"
#include "compute/Exception.h"
#include "compute/Hash.h"

namespace Vellum::Kernels {

namespace {

constexpr std::size_t digitsOfHash = 16;

/// Several hashes of the same bytes. They differ from the start, by their number.
class DeclarationHash {
public:
    DeclarationHash() {
        for (std::size_t i = 0; i < hashes_.size(); ++i) {
            const char number = static_cast<char>(i);
            hashes_[i].add({&number, 1});
        }
    }

    /// Every part is followed by its end or has a fixed size, so that unlike declarations give unlike bytes.
    void text(const char* text) { bytes({text, std::char_traits<char>::length(text) + 1}); }
    template <class T>
    void number(T value) {
        const auto word = static_cast<std::uint32_t>(value);
        const char littleEndian[] = {static_cast<char>(word), static_cast<char>(word >> 8),
                                     static_cast<char>(word >> 16), static_cast<char>(word >> 24)};
        bytes({littleEndian, sizeof littleEndian});
    }
    void bytes(std::string_view bytes) {
        for (Hash& hash : hashes_)
            hash.add(bytes);
    }

    KernelIdentity identity() const {
        KernelIdentity identity;
        for (std::size_t i = 0; i < hashes_.size(); ++i)
            identity.hashes[i] = hashes_[i].value();
        return identity;
    }

private:
    std::array<Hash, 4> hashes_;
};

void addFields(DeclarationHash& hash, const ScalarDeclarations& fields, const std::byte* defaults) {
    hash.number(fields.count);
    for (int i = 0; i < fields.count; ++i) {
        const ScalarDeclaration& field = fields.list[i];
        hash.text(field.name);
        hash.number(field.type);
        hash.number(field.vectorWidth);
        hash.number(field.arrayLength);
        hash.number(field.offset);
        if (defaults)
            hash.bytes({reinterpret_cast<const char*>(defaults) + field.offset, static_cast<std::size_t>(field.bytes)});
    }
}

[[noreturn]] void notAKey(std::string_view text, const std::string& reason) {
    Vellum::Compute::fail("\"" + std::string(text) + "\" is not the key of a kernel variant: " + reason + ".");
}

}  // namespace

std::string_view tagOf(KernelTarget target) {
    switch (target) {
        case KernelTarget::cpuOnePixel:
            return "2_2_1";
        case KernelTarget::cpuPacked:
            return "2_2_19";
        case KernelTarget::cuda:
            return "4_8_1";
    }
    return "unknown";
}

KernelTarget targetOf(Cobalt::Device::APIEnum api, Vellum::CodeGen::Flags flags) {
    if (api != Cobalt::Device::APIEnum::Host) return KernelTarget::cuda;
    return flags == Vellum::CodeGen::Flags::packed ? KernelTarget::cpuPacked : KernelTarget::cpuOnePixel;
}

KernelIdentity KernelIdentity::of(const KernelDeclaration& declaration) {
    DeclarationHash hash;
    hash.text(declaration.name);
    hash.number(declaration.perComponent);
    hash.number(declaration.passes);
    hash.number(declaration.images.count);
    for (int i = 0; i < declaration.images.count; ++i) {
        const ImageDeclaration& image = declaration.images.list[i];
        hash.text(image.name);
        hash.number(image.written);
        hash.number(image.pattern);
        hash.number(image.edge);
    }
    const auto defaults = defaultParameters(declaration);
    addFields(hash, declaration.scalars, defaults.data());
    addFields(hash, declaration.derived, defaults.data());
    addFields(hash, declaration.accumulators, nullptr);
    return hash.identity();
}

std::string KernelIdentity::text() const {
    std::string text;
    for (const std::uint64_t hash : hashes) {
        const std::string digits = hexadecimal(hash);
        text.append(digitsOfHash - digits.size(), '0');
        text += digits;
    }
    return text;
}

KernelKey KernelKey::parse(std::string_view text) {
    KernelKey key;
    const std::size_t digits = digitsOfHash * key.kernel.hashes.size();
    if (text.find_first_not_of("0123456789abcdef") != digits || text[digits] != '_')
        notAKey(text, "it doesn't begin with 64 lower-case hexadecimal digits and a \"_\"");
    for (std::size_t i = 0; i < key.kernel.hashes.size(); ++i) {
        const char* begin = text.data() + i * digitsOfHash;
        std::from_chars(begin, begin + digitsOfHash, key.kernel.hashes[i], 16);
    }
    const std::string_view rest = text.substr(digits + 1);
    for (const KernelTarget target : kernelTargets) {
        const std::string_view tag = tagOf(target);
        if (!rest.starts_with(tag) || rest.substr(tag.size(), 1) != "_") continue;
        key.target = target;
        key.types = PixelTypes::parse(rest.substr(tag.size() + 1));
        return key;
    }
    notAKey(text, "after the digits there must be 2_2_1, 2_2_19 or 4_8_1, and then pixel types");
}

std::string KernelKey::text() const {
    return kernel.text() + "_" + std::string(tagOf(target)) + "_" + types.text();
}

}  // namespace Vellum::Kernels
