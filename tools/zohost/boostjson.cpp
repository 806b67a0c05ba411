// Boost.JSON, compiled here once.
#include <boost/json/src.hpp>
