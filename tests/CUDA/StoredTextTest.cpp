#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>

#include "compute/Catalogue.h"
#include "compute/PrecompiledKernels.h"

namespace ViewTint::Tests {

namespace {

namespace fs = std::filesystem;

/// The distinct texts and a kernel of each.
std::map<std::string, std::string> texts() {
    std::map<std::string, std::string> found;
    for (const auto* family : Vellum::Kernels::families())
        for (const auto& entry : family->kernels())
            for (int variant = 0; variant < static_cast<int>(entry.tuples().size()); ++variant) {
                const auto key = entry.key(variant, Vellum::Kernels::KernelTarget::cuda).text();
                const auto& stored = Vellum::JIT::precompiledKernel(key);
                if (!stored.hasGpuBody()) continue;
                const auto bytes = stored.slot1();
                found.try_emplace({reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                                  entry.declaration().name + (" " + entry.tuples()[variant].text()));
            }
    return found;
}

std::string ptxas() {
    for (const char* path : {"/usr/local/cuda/bin/ptxas", "/usr/bin/ptxas"})
        if (fs::exists(path)) return path;
    return "";
}

}  // namespace

TEST(StoredTexts, addAndMultiplyOneByOne) {
    const auto all = texts();
    if (all.empty()) GTEST_SKIP() << "this build had no compiler for GPUs";
    EXPECT_GT(all.size(), 150u);
    for (const auto& [text, kernel] : all) {
        // Without a rounding mode the two may become one operation that rounds otherwise.
        for (const char* fused : {"fma.", "mad.f32", "\tadd.f32", "\tsub.f32", "\tmul.f32", "div.approx", "div.full",
                                  "sqrt.approx", ".ftz"})
            EXPECT_EQ(text.find(fused), std::string::npos) << kernel << ": " << fused;
        EXPECT_EQ(text.find("vt3_"), std::string::npos) << kernel;
    }
}

TEST(StoredTexts, areAcceptedForEveryGenerationOfCards) {
    if (ptxas().empty()) GTEST_SKIP() << "ptxas of the CUDA toolkit is not installed";
    const auto all = texts();
    if (all.empty()) GTEST_SKIP() << "this build had no compiler for GPUs";
    const fs::path folder = fs::path(testing::TempDir()) / "viewtint_stored_texts";
    fs::create_directories(folder);
    const auto refused = [&](const std::string& target) {
        const fs::path file = folder / (target + ".ptx");
        const std::string command = "'" + ptxas() + "' -O0 -arch=" + target + " '" + file.string() + "' -o /dev/null";
        std::string kernels;
        for (const auto& [text, kernel] : all) {
            std::ofstream(file) << text;
            if (std::system((command + " > '" + file.string() + ".log' 2>&1").c_str()) != 0) kernels += kernel + ", ";
        }
        return kernels;
    };
    std::map<std::string, std::future<std::string>> runs;
    for (const char* target : {"sm_75", "sm_90", "sm_120"})
        runs[target] = std::async(std::launch::async, refused, target);
    for (auto& [target, run] : runs)
        EXPECT_EQ(run.get(), "") << target;
    fs::remove_all(folder);
}

}  // namespace ViewTint::Tests
