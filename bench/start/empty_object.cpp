// An object with nothing in it, which the library's is compared with when it is loaded.
