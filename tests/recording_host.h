// The test kit, with GoogleTest told of its failures.
#ifndef KIVCLAIM_TESTS_RECORDING_HOST_H
#define KIVCLAIM_TESTS_RECORDING_HOST_H

#include "testkit/recording_host.h"

namespace recording = kivclaim::testkit;

#endif
