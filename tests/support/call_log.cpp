#include "tests/support/call_log.h"

#include <algorithm>
#include <utility>

namespace kova::test {

CallLog& CallLog::instance() {
    static CallLog log;
    return log;
}

void CallLog::add(std::string text, std::vector<unsigned char> data) {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back({std::move(text), std::move(data)});
}

void CallLog::clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
}

std::vector<Call> CallLog::calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<std::string> CallLog::texts() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> texts;
    for (const Call& call : calls_) texts.push_back(call.text);
    return texts;
}

std::vector<std::string> CallLog::take() {
    std::vector<std::string> all = texts();
    clear();
    return all;
}

testing::AssertionResult sameCalls(const std::vector<std::string>& actual,
                                   const std::vector<std::string>& expected) {
    if (actual == expected)
        return testing::AssertionSuccess();
    const auto parted =
        std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const auto index = static_cast<std::size_t>(parted.first - actual.begin());
    auto failure = testing::AssertionFailure();
    failure << actual.size() << " calls, expected " << expected.size() << "; call " << index
            << " differs:\n";
    const std::size_t from = index < 3 ? 0 : index - 3;
    for (std::size_t i = from; i < index + 3; ++i)
        failure << "  " << (i < actual.size() ? actual[i] : "(none)") << "   expected "
                << (i < expected.size() ? expected[i] : "(none)") << "\n";
    return failure;
}

int countCalls(const std::vector<std::string>& calls, const std::string& name) {
    return static_cast<int>(
        std::count_if(calls.begin(), calls.end(), [&name](const std::string& call) {
            return call.compare(0, name.size() + 1, name + "(") == 0;
        }));
}

}  // namespace kova::test
