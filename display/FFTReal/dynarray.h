// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "fftassert.h"

// An owned heap array with checked element access. Resizing to a positive size
// replaces the storage by fresh default-constructed elements; the old contents
// are not kept. Resizing to 0 leaves the array as it is.
template <class T> class DynArray
{
public:
    typedef T DataType;

    DynArray() = default;
    explicit DynArray(int size) { resize(size); }
    ~DynArray() { delete[] _data_ptr; }

    DynArray(const DynArray &) = delete;
    DynArray &operator=(const DynArray &) = delete;

    int size() const { return _len; }

    void resize(int size)
    {
        FFTREAL_ASSERT(size >= 0);
        if (size > 0) {
            DataType *fresh = new DataType[size];
            delete[] _data_ptr;
            _data_ptr = fresh;
            _len = size;
        }
    }

    const DataType &operator[](int pos) const
    {
        FFTREAL_ASSERT(pos >= 0);
        FFTREAL_ASSERT(pos < _len);
        return _data_ptr[pos];
    }

    DataType &operator[](int pos)
    {
        FFTREAL_ASSERT(pos >= 0);
        FFTREAL_ASSERT(pos < _len);
        return _data_ptr[pos];
    }

private:
    DataType *_data_ptr = nullptr;
    int _len = 0;
};
