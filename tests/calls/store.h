// Keeps records. Compiled with either version of the package. Any thread.
#pragma once

#include <aidl/test/versions/BnStore.h>
#include <android-base/thread_annotations.h>

#include <mutex>
#include <string>
#include <vector>

namespace calls_test {

class Store : public aidl::test::versions::BnStore {
  public:
    using Record = aidl::test::versions::Record;
    using Setting = aidl::test::versions::Setting;
    using Value = aidl::test::versions::Value;
    using ScopedAStatus = ndk::ScopedAStatus;

    ScopedAStatus put(const std::vector<Record>& records, const std::string& mark) override {
        std::lock_guard<std::mutex> lock(mutex_);
        records_ = records;
        mark_ = mark;
        return ScopedAStatus::ok();
    }
    ScopedAStatus records(std::vector<Record>* out) override {
        std::lock_guard<std::mutex> lock(mutex_);
        *out = records_;
        return ScopedAStatus::ok();
    }
    ScopedAStatus describe(std::string* out) override {
        std::lock_guard<std::mutex> lock(mutex_);
        *out = mark_ + ":";
        for (const Record& record : records_)
            *out += " " + record.toString();
        return ScopedAStatus::ok();
    }
    ScopedAStatus echoSetting(Setting setting, Setting* out) override {
        *out = setting;
        return ScopedAStatus::ok();
    }
    ScopedAStatus echoValue(const Value& value, Value* out) override {
        *out = value;
        return ScopedAStatus::ok();
    }

  private:
    std::mutex mutex_;
    std::vector<Record> records_ GUARDED_BY(mutex_);
    std::string mark_ GUARDED_BY(mutex_);
};

}  // namespace calls_test
