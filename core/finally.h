#pragma once

#include <utility>

/// Calls an action at the end of a scope, however it is left. The action doesn't throw.
template <class Action>
class Finally {
  public:
    explicit Finally(Action theAction) : action(std::move(theAction)) {}
    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;
    ~Finally() { action(); }

  private:
    const Action action;
};
