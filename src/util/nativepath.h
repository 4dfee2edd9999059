#pragma once

#include <QString>

// Turns a host (Windows-form) path into a native one: a leading drive "X:" is dropped
// and every backslash becomes a slash ("Z:\home\ann\data\" -> "/home/ann/data/").
QString NativePath(const QString& hostPath);
