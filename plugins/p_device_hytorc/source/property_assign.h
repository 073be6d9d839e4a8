#ifndef PROPERTY_ASSIGN_H
#define PROPERTY_ASSIGN_H

// Stores `value` in a property's member; true when it differs from what was there,
// that is when the property's change signal is due.
template <typename T>
bool assignChanged(T& member, const T& value)
{
    if (member == value)
        return false;
    member = value;
    return true;
}

#endif // PROPERTY_ASSIGN_H
