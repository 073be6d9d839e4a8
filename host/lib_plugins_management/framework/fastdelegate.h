#ifndef FASTDELEGATE_H
#define FASTDELEGATE_H

#include <functional>
#include <utility>

// Bound member-function callbacks: an object and one of its member functions,
// called later with the delegate's arguments. An empty delegate means "no callback".
namespace fastdelegate {

template <typename R, typename... Args>
class DelegateBase
{
public:
    DelegateBase() = default;

    template <class X, class Y, typename MR, typename... MArgs>
    DelegateBase(Y* object, MR (X::*method)(MArgs...)) { bind(object, method); }

    template <class X, class Y, typename MR, typename... MArgs>
    void bind(Y* object, MR (X::*method)(MArgs...))
    {
        X* target = static_cast<X*>(object);
        m_call = [target, method](Args... args) -> R { return (target->*method)(std::forward<Args>(args)...); };
    }

    void clear() { m_call = nullptr; }
    bool empty() const { return !m_call; }
    bool operator!() const { return empty(); }
    explicit operator bool() const { return !empty(); }

    R operator()(Args... args) const { return m_call(std::forward<Args>(args)...); }

private:
    std::function<R(Args...)> m_call;
};

template <typename P1, typename P2, typename R = void>
class FastDelegate2 : public DelegateBase<R, P1, P2>
{
public:
    using DelegateBase<R, P1, P2>::DelegateBase;
};

template <typename P1, typename P2, typename P3, typename R = void>
class FastDelegate3 : public DelegateBase<R, P1, P2, P3>
{
public:
    using DelegateBase<R, P1, P2, P3>::DelegateBase;
};

template <class X, class Y, typename P1, typename P2, typename R>
FastDelegate2<P1, P2, R> MakeDelegate(Y* object, R (X::*method)(P1, P2))
{
    return FastDelegate2<P1, P2, R>(object, method);
}

template <class X, class Y, typename P1, typename P2, typename P3, typename R>
FastDelegate3<P1, P2, P3, R> MakeDelegate(Y* object, R (X::*method)(P1, P2, P3))
{
    return FastDelegate3<P1, P2, P3, R>(object, method);
}

} // namespace fastdelegate

#endif // FASTDELEGATE_H
