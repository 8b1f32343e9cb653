#include <cerrno>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <boost/exception_ptr.hpp>

#include "base/Exception.h"
#include "base/Failure.h"

namespace {

using namespace Cobalt::Base;

class DeviceFailure : public Exception {
public:
    using Exception::Exception;
};

std::string resolved(const std::string& text) {
    Exception exception(text);
    exception.set("Error", "x");
    exception.set("Device", std::string("GPU 0"));
    exception.set("Code", -7);
    exception.set("Nested", "%%(Error)%%");
    return userMessage(exception);
}

TEST(ExceptionReferences, AreReplacedByTheNamedValue) {
    EXPECT_EQ(resolved("FFT error: %%(Error)%%."), "FFT error: x.");
    EXPECT_EQ(resolved("%%(Device)%%: %%(Error)%%%%(Code)%%"), "GPU 0: x-7");
    EXPECT_EQ(resolved("no reference, 100 %% (sure)"), "no reference, 100 %% (sure)");
    EXPECT_EQ(resolved(""), "");
}

TEST(ExceptionReferences, ToUnknownNamesSaySo) {
    EXPECT_EQ(resolved("FFT error: %%(Eror)%%."), "FFT error: (Eror unknown).");
    EXPECT_EQ(resolved("%%()%%"), "( unknown)");
    EXPECT_EQ(Exception().attributeText("Error"), "(Error unknown)");
}

TEST(ExceptionReferences, WithoutAnEndStandAsTheyAre) {
    EXPECT_EQ(resolved("a %%(Error"), "a %%(Error");
    EXPECT_EQ(resolved("%%(Error)%% then %%(Error)%"), "x then %%(Error)%");
    EXPECT_EQ(resolved("%%("), "%%(");
    EXPECT_EQ(resolved("%%(a %%(Error)%%"), "(a %%(Error unknown)");
}

TEST(ExceptionReferences, InInsertedValuesAreNotResolvedAgain) {
    EXPECT_EQ(resolved("%%(Nested)%%"), "%%(Error)%%");
    EXPECT_EQ(resolved("me: %%(UserMessage)%%"), "me: me: %%(UserMessage)%%");
}

TEST(ExceptionAttributes, ReplaceCopyAndAssignIndependently) {
    Exception first("%%(Error)%%");
    first.set("Error", 1);
    first.set("Error", "one");
    EXPECT_EQ(userMessage(first), "one");

    Exception copy(first);
    copy.set("Error", "two");
    EXPECT_EQ(userMessage(first), "one");
    EXPECT_EQ(userMessage(copy), "two");

    copy = first;
    first.set("Error", "three");
    EXPECT_EQ(userMessage(copy), "one");
    EXPECT_EQ(copy.attributeList(), "Error: one\nUserMessage: one\n");
}

TEST(ExceptionAttributes, KeepTextsThatTheirThrowerNoLongerHas) {
    auto text = std::make_unique<std::string>("a text that is too long for a string's own buffer");
    const std::string expected = *text;
    Exception exception("%%(Error)%%");
    exception.set("Error", text->c_str());
    text->assign(text->size(), '#');
    text.reset();
    EXPECT_EQ(userMessage(exception), expected);
    exception.set("Error", static_cast<const char*>(nullptr));
    EXPECT_EQ(userMessage(exception), "");
}

TEST(ExceptionMessage, WithoutTextIsTheClassName) {
    EXPECT_EQ(userMessage(NotImplemented()), "Cobalt::Base::NotImplemented");
    try {
        raise(NotImplemented());
    } catch (const Exception& caught) {
        EXPECT_EQ(userMessage(caught), "Cobalt::Base::NotImplemented");
    }
    using Injector = boost::exception_detail::error_info_injector<NotImplemented>;
    EXPECT_EQ(className(boost::exception_detail::clone_impl<Injector>(Injector(NotImplemented()))),
              "Cobalt::Base::NotImplemented");
}

TEST(Raise, RecordsWhereAndWhat) {
    const int line = __LINE__ + 2;
    try {
        raise(DeviceFailure("broken"));
    } catch (const DeviceFailure& caught) {
        EXPECT_EQ(caught.attributeText("ThrowFile"), __FILE__);
        EXPECT_EQ(caught.attributeText("ThrowLine"), std::to_string(line));
        EXPECT_NE(caught.attributeText("ThrowFunction").find("TestBody"), std::string::npos);
        EXPECT_NE(caught.attributeText("ExceptionClass").find("DeviceFailure"), std::string::npos);
        EXPECT_EQ(caught.attributeText("ExceptionClass").find("clone_impl"), std::string::npos);
    }
}

TEST(Raise, IsCaughtAsEveryBaseButInterruptionIsNoFailure) {
    EXPECT_THROW(raise(DeviceFailure("x")), Exception);
    EXPECT_THROW(raise(DeviceFailure("x")), boost::exception);
    EXPECT_THROW(raise(InterruptedException()), InterruptedException);
    EXPECT_THROW(raise(InterruptedException()), MessageException);
    bool failure = false;
    try {
        raise(InterruptedException());
    } catch (const Exception&) {
        failure = true;
    } catch (...) {
    }
    EXPECT_FALSE(failure);
}

TEST(CurrentFailure, TellsExceptionsOfEveryClassInWords) {
    const std::pair<void (*)(), const char*> cases[] = {
        {[] { raise(DeviceFailure("the device is gone")); }, "the device is gone"},
        {[] { throw InterruptedException(); }, "interrupted"},
        {[] { throw std::runtime_error("a sentence"); }, "a sentence"},
        {[] { throw std::bad_alloc(); }, "not enough memory"},
        {[] { throw std::system_error(EAGAIN, std::system_category()); }, "ulimit -u"},
        {[] {
             throw std::filesystem::filesystem_error("", "/a/b", {ENOSPC, std::generic_category()});
         },
         "'/a/b': No space left on device; make room"},
        {[] { throw 1; }, "unknown"},
    };
    for (const auto& [fail, words] : cases) {
        try {
            fail();
        } catch (...) {
            EXPECT_NE(currentFailure().find(words), std::string::npos) << currentFailure();
        }
    }
}

/// Catches `store`d copies after the thrower's own object is gone.
template <class Pointer, class Current, class Rethrow>
void crossesThreads(Current current, Rethrow rethrow) {
    Pointer stored;
    std::thread([&] {
        try {
            DeviceFailure failure("lost %%(Device)%%");
            failure.set("Device", "GPU 1");
            raise(failure);
        } catch (...) {
            stored = current();
        }
    }).join();
    for (int time = 0; time < 2; ++time) {
        bool caught = false;
        try {
            rethrow(stored);
        } catch (DeviceFailure& failure) {
            caught = true;
            EXPECT_EQ(userMessage(failure), "lost GPU 1");
            EXPECT_TRUE(failure.has("ThrowLine"));
        }
        EXPECT_TRUE(caught);
    }
}

TEST(Raise, SurvivesExceptionPointers) {
    crossesThreads<std::exception_ptr>([] { return std::current_exception(); },
                                       [](const std::exception_ptr& stored) { std::rethrow_exception(stored); });
    crossesThreads<boost::exception_ptr>([] { return boost::current_exception(); },
                                         [](const boost::exception_ptr& stored) { boost::rethrow_exception(stored); });
}

TEST(Raise, ClonesItsAttributesForBoost) {
    boost::exception_ptr stored;
    try {
        raise(DeviceFailure("first"));
    } catch (DeviceFailure& failure) {
        stored = boost::current_exception();
        failure.set("UserMessage", "changed after the copy");
    }
    try {
        boost::rethrow_exception(stored);
    } catch (const Exception& failure) {
        EXPECT_EQ(userMessage(failure), "first");
    }
}

}  // namespace
