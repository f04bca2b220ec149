#pragma once

#include <map>
#include <set>
#include <string>

namespace station {

/// Names of which none is there twice: a second "Front" becomes "Front (2)".
class UniqueNames {
  public:
    std::string add(const std::string& wanted) {
        std::string name = wanted;
        for (int& number = last.try_emplace(wanted, 1).first->second; !names.insert(name).second;) {
            name = wanted + " (" + std::to_string(++number) + ')';
        }
        return name;
    }

  private:
    std::set<std::string> names;
    std::map<std::string, int> last;  ///< the number given last, by the name that was wanted
};

}  // namespace station
