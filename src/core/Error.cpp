#include "core/Error.h"

namespace tapekeep {

std::string describe(const std::exception& error) {
    return error.what();
}

std::string describe(std::exception_ptr error) {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
    }
    return "Unknown error";
}

}  // namespace tapekeep
