#include "base/Failure.h"

#include <fmt/format.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <new>
#include <system_error>

#include "base/Exception.h"

namespace Cobalt::Base {

std::string systemText(int error) {
    switch (error) {
        case ENOSPC:
            return "the disk is full; make room, or write to another disk";
        case EDQUOT:
            return "your quota of this disk is used up; make room, or write to another disk";
        case EFBIG:
            return "the file would become larger than files may be here; raise the limit (ulimit -f), or write to "
                   "another disk";
        case EMFILE:
            return "this program has as many files open as it may; raise the limit (ulimit -n)";
        case ENFILE:
            return "the machine has as many files open as it may; close other programs";
        case EAGAIN:
            return "the system gives no more threads or processes; raise the limit (ulimit -u), end other programs, or "
                   "use fewer threads";
        case ENOMEM:
            return "there is not enough memory; end other programs, raise the limit (ulimit -v), or use fewer "
                   "threads";
        case EROFS:
            return "the disk can only be read; write to another disk";
        default:
            return std::generic_category().message(error);
    }
}

std::string currentFailure() {
    try {
        throw;
    } catch (const Exception& failure) {
        return userMessage(failure);
    } catch (const ExceptionDecoration& failure) {
        return failure.attributeText("UserMessage");
    } catch (const MessageException&) {
        return "interrupted";
    } catch (const std::bad_alloc&) {
        return systemText(ENOMEM);
    } catch (const std::filesystem::filesystem_error& failure) {
        return fmt::format("'{}': {}", failure.path1().string(), systemText(failure.code().value()));
    } catch (const std::system_error& failure) {
        const std::error_category& category = failure.code().category();
        const bool known = category == std::generic_category() || category == std::system_category();
        return known ? systemText(failure.code().value()) : failure.what();
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "a fault in this program, of an unknown kind";
    }
}

}  // namespace Cobalt::Base
