package com.velmora.opc.client;

import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;

/** A client opened for each test against the simulation server, closed after it with the server back up and reset. */
abstract class OpenClient {
    OpcClient client;

    @BeforeEach
    void openClient() {
        SimFixture.require();
        client = OpcClient.open();
    }

    @AfterEach
    void closeClient() {
        SimControl.setDown(false);
        if (client != null) client.close();
        SimControl.reset();
    }
}
