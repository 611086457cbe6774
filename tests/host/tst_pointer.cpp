// Once with a real pointer, on a display of its own.
