#pragma once

#include <memory>

// The one instance of a facade: made on first use, unless a test has put its double in place.
template <typename Facade> class FacadeSlot {
public:
    template <typename Make> static Facade& get(Make&& make) {
        auto& p = instance();
        if (!p)
            p = make();
        return *p;
    }
    static void install(std::unique_ptr<Facade> facade) { instance() = std::move(facade); }

private:
    static std::unique_ptr<Facade>& instance() {
        static std::unique_ptr<Facade> p;
        return p;
    }
};
