#include "sandbox.hpp"
