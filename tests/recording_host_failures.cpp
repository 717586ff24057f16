// GoogleTest hears what the played host finds wrong.
#include "tests/recording_host.h"

#include <gtest/gtest.h>

namespace {

const bool isTold = [] {
    recording::onFailure([](const std::string& what) { ADD_FAILURE() << what; });
    return true;
}();

}  // namespace
