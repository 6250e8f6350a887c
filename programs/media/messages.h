#pragma once

#include <string>

/// Collects what libav complains of instead of printing it.
void collectMessages();

/// How many errors decoders have complained of so far.
unsigned long complaintCount();

/// The last complaint of any part of libav, empty when there was none.
std::string lastComplaint();
