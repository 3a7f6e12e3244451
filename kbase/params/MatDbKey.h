// MatDbKey: the key of a material in the host's material database.
//
// A key names a material by the number of the database that holds it and the number of the
// material within that database; the pair (0, 0) is the empty key ("no material"). Keys are plain
// values: copied, compared for equality and ordered by database first, then by material number.
#pragma once

#include <cstdint>

#include "kbase/export.h"

class KBASE_API MatDbKey {
  public:
    MatDbKey() = default;
    // Both numbers are stored in 32 bits.
    MatDbKey(long database, long material)
        : database_(static_cast<int32_t>(database)), material_(static_cast<int32_t>(material)) {}

    long GetDatabase() const { return database_; }
    long GetMaterial() const { return material_; }
    void SetDatabase(long database) { database_ = static_cast<int32_t>(database); }
    void SetMaterial(long material) { material_ = static_cast<int32_t>(material); }
    bool IsEmpty() const { return database_ == 0 && material_ == 0; }

    // -1, 0 or 1: database numbers first, then material numbers.
    int CompareTo(const MatDbKey& other) const {
        if (database_ != other.database_) return database_ < other.database_ ? -1 : 1;
        if (material_ != other.material_) return material_ < other.material_ ? -1 : 1;
        return 0;
    }
    bool operator==(const MatDbKey& o) const { return CompareTo(o) == 0; }
    bool operator!=(const MatDbKey& o) const { return CompareTo(o) != 0; }
    bool operator<(const MatDbKey& o) const { return CompareTo(o) < 0; }
    bool operator<=(const MatDbKey& o) const { return CompareTo(o) <= 0; }
    bool operator>(const MatDbKey& o) const { return CompareTo(o) > 0; }
    bool operator>=(const MatDbKey& o) const { return CompareTo(o) >= 0; }

  private:
    int32_t database_ = 0;
    int32_t material_ = 0;
};
