#pragma once

#include <utils/SortedVector.h>

#include <utility>

namespace android {

// A map kept as an array in ascending key order.
template <typename Key, typename Value>
class KeyedVector {
  public:
    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.isEmpty(); }
    void clear() { mItems.clear(); }

    const Key& keyAt(size_t index) const { return mItems[index].key; }
    const Value& valueAt(size_t index) const { return mItems[index].value; }
    Value& editValueAt(size_t index) { return mItems.editItemAt(index).value; }

    // NAME_NOT_FOUND when it is not there.
    ssize_t indexOfKey(const Key& key) const { return mItems.indexOf(Item{key, Value()}); }

    // The entry's index; an entry of that key is replaced.
    ssize_t add(const Key& key, const Value& value) { return mItems.add(Item{key, value}); }
    void removeItemsAt(size_t index) { mItems.removeItemsAt(index); }

  private:
    struct Item {
        Key key;
        Value value;
        bool operator<(const Item& other) const { return key < other.key; }
    };
    SortedVector<Item> mItems;
};

}  // namespace android
