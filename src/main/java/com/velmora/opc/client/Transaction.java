package com.velmora.opc.client;

import java.util.Map;

/**
 * An asynchronous read or write as the server took it: the transaction id under which its completion
 * arrives, the cancel id that {@link Subscription#cancel} takes, and the items left out of it with
 * their errors (items the server rejected earlier, values that do not convert, and the items the server
 * refused when the request was made). Items left out get no completion; when every item was left out
 * the server was not asked and no completion follows at all.
 */
public record Transaction(int transactionId, int cancelId, Map<String, Integer> rejected) {
    public Transaction {
        rejected = Map.copyOf(rejected);
    }
}
