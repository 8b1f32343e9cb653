#include "scalars.h"

#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "bindings.h"
#include "compute/Exception.h"

namespace ViewTint::Python {

namespace {

using Vellum::CodeGen::MarshalledParam;
using Vellum::JIT::KernelExecutionContext;
using Vellum::Kernels::ScalarType;

template <class T>
nb::object valueOf(const MarshalledParam& param, const void* bytes) {
    const T* const elements = static_cast<const T*>(bytes);
    const int count = param.count * param.arrayLength;
    if (count == 1) return nb::cast(*elements);
    nb::list list;
    for (int i = 0; i < count; ++i)
        list.append(elements[i]);
    return list;
}

bool isBoolean(nb::handle value) {
    const std::string_view type = Py_TYPE(value.ptr())->tp_name;
    return PyBool_Check(value.ptr()) || type == "numpy.bool" || type == "numpy.bool_";
}

/// Python's own numbers and NumPy's.
bool isNumber(nb::handle value, const char* kind) {
    return !isBoolean(value) && nb::isinstance(value, nb::module_::import_("numbers").attr(kind));
}

struct OutOfRange {
    std::string message;
};

// Each gives nothing where the value is of another type.
template <class T>
std::optional<T> converted(nb::handle value);

template <>
std::optional<bool> converted(nb::handle value) {
    if (!isBoolean(value)) return {};
    return nb::cast<bool>(nb::bool_(value));
}

template <>
std::optional<int> converted(nb::handle value) {
    if (!isNumber(value, "Integral")) return {};
    int number = 0;
    if (!nb::try_cast(value, number)) throw OutOfRange{textOf(nb::borrow(value)) + " doesn't fit an int of 32 bits."};
    return number;
}

template <>
std::optional<float> converted(nb::handle value) {
    if (!isNumber(value, "Real")) return {};
    const double number = PyFloat_AsDouble(value.ptr());
    const bool tooLarge =
        PyErr_Occurred() != nullptr || (std::isfinite(number) && std::abs(number) > std::numeric_limits<float>::max());
    PyErr_Clear();
    if (tooLarge) throw OutOfRange{textOf(nb::borrow(value)) + " is too large for a float32."};
    return static_cast<float>(number);
}

template <class T>
bool convertAll(nb::handle value, T* elements, int count) {
    if (count > 1 && (!PySequence_Check(value.ptr()) || nb::len(value) != static_cast<std::size_t>(count)))
        return false;
    for (int i = 0; i < count; ++i) {
        const auto element = converted<T>(count == 1 ? nb::borrow(value) : value[i]);
        if (!element) return false;
        elements[i] = *element;
    }
    return true;
}

template <class T>
void setAs(KernelExecutionContext& context, const std::string& name, const MarshalledParam& param, nb::handle value) {
    const int count = param.count * param.arrayLength;
    const std::unique_ptr<T[]> elements(new T[count]);
    if (!convertAll(value, elements.get(), count)) context.badType({name}, param);
    context.setElements<T>({name}, {elements.get(), static_cast<std::size_t>(count)});
}

MarshalledParam paramOf(const KernelExecutionContext& context, const std::string& name) {
    try {
        const MarshalledParam param = context.getMarshalledParamThrow({name});
        if (!param.inAccumulator) return param;
    } catch (const Vellum::Compute::Exception& unknown) {
        raise("UnknownNameError", userMessage(unknown));
    }
    raise("UnknownNameError", "\"" + name + "\" is a result of the kernel, which can't be set.");
}

}  // namespace

nb::object scalarValue(const MarshalledParam& param, const void* bytes) {
    switch (param.type) {
        case ScalarType::real:
            return valueOf<float>(param, bytes);
        case ScalarType::integer:
            return valueOf<int>(param, bytes);
        case ScalarType::boolean:
            return valueOf<bool>(param, bytes);
    }
    return nb::none();
}

void setScalar(KernelExecutionContext& context, const std::string& name, nb::handle value) {
    const MarshalledParam param = paramOf(context, name);
    try {
        switch (param.type) {
            case ScalarType::real:
                return setAs<float>(context, name, param, value);
            case ScalarType::integer:
                return setAs<int>(context, name, param, value);
            case ScalarType::boolean:
                return setAs<bool>(context, name, param, value);
        }
    } catch (const OutOfRange& number) {
        raise("Error", "Scalar \"" + name + "\": " + number.message);
    } catch (const Vellum::Compute::Exception& wrong) {
        raise("WrongTypeError", userMessage(wrong));
    }
}

}  // namespace ViewTint::Python
