#include "base/Failure.h"

#include <fmt/format.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <new>
#include <system_error>

#include "base/Exception.h"

namespace Cobalt::Base {

const char* remedy(int error) {
    switch (error) {
        case ENOSPC:
        case EDQUOT:
            return "make room, or write to another disk";
        case EFBIG:
            return "raise the limit of files' sizes (ulimit -f), or write to another disk";
        case EROFS:
            return "write to another disk";
        case EMFILE:
            return "raise the limit (ulimit -n)";
        case ENFILE:
            return "end other programs";
        case ENOMEM:
            return "end other programs, raise the limit (ulimit -v), or use fewer threads";
        default:
            return nullptr;
    }
}

std::string systemText(int error) {
    if (error == EAGAIN)  // the system's own words name nothing
        return "no more threads or processes can be had; raise the limit (ulimit -u), end other programs, or use fewer "
               "threads";
    const std::string reason = std::generic_category().message(error);
    const char* wayOut = remedy(error);
    return wayOut ? fmt::format("{}; {}", reason, wayOut) : reason;
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
        return fmt::format("there is not enough memory for these pictures; {}", remedy(ENOMEM));
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
