#ifndef TESTS_SUPPORT_EXPOSE_H
#define TESTS_SUPPORT_EXPOSE_H

/// Defines `Type& Function(Class&)`, which returns a private member. It can, because an explicit
/// instantiation may name private members.
#define EXPOSE(Function, Class, Member, ...)                                                       \
    __VA_ARGS__& Function(Class& object);                                                          \
    template <__VA_ARGS__ Class::*Pointer>                                                         \
    struct Function##Class##Member                                                                 \
    {                                                                                              \
        friend __VA_ARGS__& Function(Class& object) { return object.*Pointer; }                    \
    };                                                                                             \
    template struct Function##Class##Member<&Class::Member>;

#endif
