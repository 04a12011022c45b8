#include "tools/entries.h"

constinit const std::span<const Field> OBJECT_FIELDS;
constinit const std::span<const Field> FACE_FIELDS;
