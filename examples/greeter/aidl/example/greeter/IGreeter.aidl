package example.greeter;

import example.greeter.Greeting;
import example.greeter.IWatcher;

/** Greets whoever asks. */
interface IGreeter {
    /**
     * Greets somebody and tells all watchers.
     *
     * @param name whom to greet
     * @throws EX_ILLEGAL_ARGUMENT if the name is empty
     */
    Greeting greet(String name);

    /** Tells the watcher of every greeting from now on, until its process ends. */
    void watch(IWatcher watcher);
}
