#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/ComparedFile.h"
#include "host/measures/ContactSheet.h"
#include "host/measures/DisparityComparison.h"
#include "host/measures/PictureComparison.h"

namespace ViewTint::Cli {

/// The files of `viewtint compare`, open.
struct ComparedFiles {
    ComparedFile a;
    ComparedFile b;
    std::optional<ComparedFile> truth;
};

/// A view that all files have, under its name in each of them.
struct ComparedView {
    std::string name;
    std::string inA;
    std::string inB;
    std::string inTruth;  ///< empty without a truth
};

/// One measured comparison.
struct MeasuredView {
    std::string view;
    std::string first;   ///< "A" or "B"
    std::string second;  ///< "B" or "truth"
    Host::Comparison comparison;
};

/// The two views of one file, measured on the grid of `view` through its disparity.
struct MeasuredPair {
    std::string file;  ///< "A" or "B"
    std::string view;
    std::string otherView;
    bool occlusionKnown = false;  ///< else hidden pixels are in the numbers
    Host::Comparison comparison;
};

/// The disparity of one file's view, measured against another file's.
struct MeasuredDisparity {
    std::string view;
    std::string first;   ///< "A" or "B"
    std::string second;  ///< "B" or "truth"
    Host::DisparityComparison comparison;
};

struct ComparisonReport {
    std::vector<MeasuredView> views;
    std::vector<MeasuredPair> pairs;
    std::vector<MeasuredDisparity> disparities;  ///< of views whose files have unlike disparity
};

/// The views to compare: the one named `wanted`, or all that the files share by name. A file with a single view
/// stands for any wanted view; files with a single view each are compared whatever the views are called.
/// Throws CallError when no view is left, FileError when the files differ in size.
std::vector<ComparedView> viewsToCompare(const ComparedFiles& files, const std::optional<std::string>& wanted);

/// Measures A against B, or both against the truth where there is one; and the views of A and of B through their
/// disparity, as far as they have it. Throws FileError; Interrupted.
ComparisonReport measure(const ComparedFiles& files, const std::vector<ComparedView>& views);

/// With a truth, the view in which A and B differ most: original, A, B and below the other view and the differences
/// from the truth. Without one, for each view A, B and their difference. Throws FileError; Interrupted.
Host::Raster drawComparison(const ComparedFiles& files, const std::vector<ComparedView>& views,
                            const ComparisonReport& report);

}  // namespace ViewTint::Cli
