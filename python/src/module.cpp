#include "base/Ensure.h"
#include "base/Failure.h"
#include "bindings.h"
#include "compute/Exception.h"
#include "node/KernelLibraries.h"

namespace ViewTint::Python {

namespace {

/// Exceptions of the C++ layers carry their sentence for the user as an attribute.
void translate(const std::exception_ptr& exception, void*) {
    const auto set = [](nb::handle errorClass, const Cobalt::Base::Exception& failure) {
        PyErr_SetString(errorClass.ptr(), Cobalt::Base::userMessage(failure).c_str());
    };
    try {
        std::rethrow_exception(exception);
    } catch (const Vellum::Compute::MemoryException& failure) {
        set(PyExc_MemoryError, failure);
    } catch (const Cobalt::Base::ContractViolation& failure) {
        set(PyExc_RuntimeError, failure);
    } catch (const Cobalt::Base::Exception& failure) {
        set(packageClass("viewtint.errors", "Error"), failure);
    } catch (const Cobalt::Base::ExceptionDecoration& failure) {  // some failures aren't Exceptions
        PyErr_SetString(packageClass("viewtint.errors", "Error").ptr(), failure.attributeText("UserMessage").c_str());
    } catch (const Cobalt::Base::MessageException&) {
        PyErr_SetString(packageClass("viewtint.errors", "Error").ptr(), Cobalt::Base::currentFailure().c_str());
    }
}

}  // namespace

}  // namespace ViewTint::Python

NB_MODULE(_viewtint, module) {
    using namespace ViewTint::Python;
    Vellum::registerKernelLibraries();
    module.doc() = "The compiled part of viewtint.";
    module.attr("version") = VIEWTINT_VERSION;
    nb::register_exception_translator(translate);
    bindImage(module);
    bindCatalogue(module);
    bindRun(module);
    bindCopies(module);
    bindArithmetic(module);
    bindColour(module);
    bindConvolution(module);
    bindNeighbourhoods(module);
    bindBilateralFilter(module);
    bindFourierTransform(module);
    bindGuidedFilter(module);
    bindPictureBuilder(module);
    bindStatistics(module);
    bindToneAligner(module);
    bindSettings(module);
#if VIEWTINT_WITH_HOST
    bindNode(module);
    bindRenderFile(module);
#endif
}
