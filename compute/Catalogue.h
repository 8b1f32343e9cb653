#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "compute/KernelKey.h"
#include "compute/PixelTypes.h"
#include "compute/StoredTexts.h"
#include "compute/kernel/launch.h"

namespace Vellum::Kernels {

const char* toString(Pattern pattern);
const char* toString(EdgeMethod method);
const char* toString(ScalarType type);
/// "float", "float[4]".
std::string typeText(ScalarType type, int elements);

/// A parameter block's first part as it is before anything is set: `parameterBytes` of the declaration.
std::vector<std::byte> defaultParameters(const KernelDeclaration& declaration);

/// One kernel with its compiled forms for the instruction sets that were built.
class CatalogueEntry {
public:
    explicit CatalogueEntry(const KernelDeclaration& declaration);

    const KernelDeclaration& declaration() const { return *declaration_; }
    const KernelIdentity& identity() const { return identity_; }
    const std::vector<PixelTypes>& tuples() const { return tuples_; }
    /// The number of the variant for these pixel types, or -1.
    int variant(const PixelTypes& types) const;
    KernelKey key(int variant, KernelTarget target) const { return {identity_, target, tuples_[variant]}; }

    /// The form that the present instruction set and the images' strides ask for.
    LaunchFunction packedForm(int variant, bool unitStride) const;
    LaunchFunction onePixelForm(int variant) const { return forms_[0][variant].onePixel; }
    DeviceBody deviceBody(int variant) const { return forms_[0][variant].deviceBody; }
    DeviceFold deviceFold(int variant) const { return forms_[0][variant].deviceFold; }
    /// False where the kernel has no scalar, no derived value and nothing to know of its images: devices with memory of
    /// their own aren't given a block then.
    bool hasParameterBlock() const { return declaration_->hasParameterBlock; }

    /// The size of the parameter block: the kernel's own parameters, then what it may know of each image.
    int parameterBytes() const {
        return imageParametersOffset() + declaration_->images.count * int{sizeof(ImageParameters)};
    }
    int imageParametersOffset() const { return (declaration_->parameterBytes + 15) / 16 * 16; }

private:
    friend class Family;
    const KernelDeclaration* declaration_;
    KernelIdentity identity_;
    std::vector<PixelTypes> tuples_;
    std::vector<const VariantFunctions*> forms_;  // by instruction set
};

/// The kernels of one source file. The build makes one object of this class for each family.
class Family {
public:
    /// Tables in the order of the instruction sets, the baseline first. `library`: the folder of the source file.
    Family(std::string_view library, std::initializer_list<const FamilyTable*> tables, const StoredTexts& texts);

    std::string_view library() const { return library_; }
    std::string_view name() const { return name_; }
    const std::vector<CatalogueEntry>& kernels() const { return kernels_; }
    /// Null where the family has no such kernel.
    const CatalogueEntry* find(std::string_view kernel) const;
    /// The GPU text of a variant, or null.
    const StoredText* text(const CatalogueEntry& entry, int variant) const;

private:
    std::string_view library_;
    std::string_view name_;
    std::vector<CatalogueEntry> kernels_;
    const StoredTexts& texts_;
};

/// Enters families into the catalogue, and their variants into the registry of precompiled kernels; families that are
/// there already are left alone. Each library has a function registerKernels() that does this for its own.
void registerFamilies(std::initializer_list<const Family*> families);
/// All families of the catalogue, by library and name.
std::vector<const Family*> families();
/// A kernel of any family of the catalogue, or null.
const CatalogueEntry* findKernel(std::string_view name);

}  // namespace Vellum::Kernels

namespace Vellum::CodeGen {

/// Which compiled form of a kernel a caller wants on the CPU.
enum class Flags : int { onePixel = 1, packed = 19 };

enum class InstructionSet { sse2 = 0, avx2 = 1, avx512 = 2 };
inline constexpr std::array allInstructionSets{InstructionSet::sse2, InstructionSet::avx2, InstructionSet::avx512};

/// The widest set that this build has, the machine knows and the limit allows.
InstructionSet instructionSet();
/// Restricts the choice, for tests and for finding faults.
void limitInstructionSet(InstructionSet limit);
const char* toString(InstructionSet set);
/// The sets that this build has and the machine knows, whatever the limit.
std::vector<InstructionSet> availableInstructionSets();

/// Flags 1 and 19 give the same bits, so requests for one-pixel code are served by the packed code, which is many times
/// as fast, unless this is switched on.
void serveOnePixelCode(bool enabled);
bool onePixelCodeServed();

}  // namespace Vellum::CodeGen
